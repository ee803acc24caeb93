#include "store/store.h"

#include "panel/bencherror.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlRecord>
#include <QUrl>
#include <QUrlQuery>

// Both databases take this dialect. "began" is UTC and sorts, "day" is the line's own.
static const char *const schema[] = {
    "CREATE TABLE runs (run TEXT PRIMARY KEY, unit TEXT NOT NULL, machine TEXT, semi TEXT,"
    " model TEXT, version TEXT, crc TEXT, line TEXT NOT NULL, operator TEXT, subject TEXT,"
    " began TEXT NOT NULL, day TEXT NOT NULL, clock TEXT NOT NULL, seconds INTEGER,"
    " passed INTEGER NOT NULL, report TEXT)",
    "CREATE TABLE levels (run TEXT REFERENCES runs, nr INTEGER, level TEXT NOT NULL, plan TEXT,"
    " plan_hash TEXT, passed INTEGER NOT NULL, faults TEXT, PRIMARY KEY (run, nr))",
    "CREATE TABLE steps (run TEXT REFERENCES runs, level_nr INTEGER, nr INTEGER,"
    " level TEXT NOT NULL, items TEXT, name TEXT NOT NULL, code TEXT, reply TEXT, meaning TEXT,"
    " ms DOUBLE PRECISION, prescribed_ms DOUBLE PRECISION, tries INTEGER,"
    " passed INTEGER NOT NULL, faults TEXT, PRIMARY KEY (run, level_nr, nr))",
    "CREATE TABLE measured (run TEXT REFERENCES runs, level_nr INTEGER, nr INTEGER,"
    " level TEXT NOT NULL, name TEXT NOT NULL, value DOUBLE PRECISION, measure TEXT,"
    " lower_limit DOUBLE PRECISION, upper_limit DOUBLE PRECISION)",
    "CREATE INDEX measured_run ON measured (run)",
    "CREATE INDEX runs_unit ON runs (unit)",
    "CREATE INDEX steps_failed ON steps (run) WHERE passed = 0",
};

static QSqlDatabase connectionOf(const QString &where)
{
    static int count = 0;
    const QString connection = QString("store-%1").arg(++count);
    const QUrl url(where);
    if (url.scheme() != "postgresql" && url.scheme() != "postgres") {
        QSqlDatabase file = QSqlDatabase::addDatabase("QSQLITE", connection);
        QDir().mkpath(QFileInfo(where).path());
        file.setDatabaseName(where);
        file.setConnectOptions("QSQLITE_BUSY_TIMEOUT=20000");
        return file;
    }
    QSqlDatabase server = QSqlDatabase::addDatabase("QPSQL", connection);
    server.setHostName(url.host());
    server.setPort(url.port());
    server.setDatabaseName(url.path().mid(1));
    server.setUserName(url.userName(QUrl::FullyDecoded));
    server.setPassword(url.password(QUrl::FullyDecoded));
    QStringList options{"connect_timeout=5", "tcp_user_timeout=10000"}; // s, ms: a line waits
    for (const auto &[name, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded)) {
        options << name + '=' + value;
    }
    server.setConnectOptions(options.join(';'));
    return server;
}

QString Store::nameOf(const QString &where)
{
    const QUrl url(where);
    return url.scheme().startsWith("postgres") ? url.toDisplayString(QUrl::RemovePassword) : where;
}

Store::Store(const QString &where)
    : name_(nameOf(where))
    , database_(connectionOf(where))
{
    if (!database_.open()) {
        const QString text = database_.lastError().text().trimmed();
        throw BenchError(
            QString("the store %1 cannot be opened: %2%3")
                .arg(name_, text, database_.isValid() ? "" : "; install libqt5sql5-psql"));
    }
    if (database_.tables().contains("runs")) {
        return;
    }
    QSqlQuery query(database_);
    database_.transaction();
    for (const char *statement : schema) {
        if (!query.exec(statement)) {
            throw BenchError(name_ + ": " + query.lastError().text());
        }
    }
    database_.commit();
}

Store::~Store()
{
    prepared_.clear();
    const QString connection = database_.connectionName();
    database_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(connection);
}

QSqlQuery &Store::run(const QString &sql, const QVariantList &parameters)
{
    if (!prepared_.contains(sql)) {
        QSqlQuery query(database_);
        query.setForwardOnly(true);
        if (!query.prepare(sql)) {
            throw BenchError(name_ + ": " + query.lastError().text());
        }
        prepared_.insert(sql, query);
    }
    QSqlQuery &query = prepared_[sql];
    for (int i = 0; i < parameters.size(); ++i) {
        QVariant value = parameters[i];
        if (value.type() == QVariant::String) {
            // Empty is not unknown, and PostgreSQL has no zero character.
            value = QString("%1").arg(value.toString().remove(QChar(0)));
        }
        query.bindValue(i, value);
    }
    if (!query.exec()) {
        throw BenchError(name_ + ": " + query.lastError().text());
    }
    return query;
}

void Store::each(const QString &sql, const QVariantList &parameters,
                 const std::function<void(const QVariantList &)> &take)
{
    QSqlQuery &query = run(sql, parameters);
    const QSqlRecord record = query.record();
    QVariantList row;
    for (int i = 0; i < record.count(); ++i) {
        row << record.fieldName(i);
    }
    take(row);
    while (query.next()) {
        for (int i = 0; i < record.count(); ++i) {
            row[i] = query.isNull(i) ? QVariant() : query.value(i);
        }
        take(row);
    }
    query.finish();
}

QVector<QVariantList> Store::rows(const QString &sql, const QVariantList &parameters)
{
    QVector<QVariantList> rows;
    each(sql, parameters, [&](const QVariantList &row) { rows << row; });
    return rows.mid(1);
}

QString Store::keyOf(QJsonObject record)
{
    record.remove("folder"); // where the report is on one machine; report.json itself lacks it
    const QByteArray text = QJsonDocument(record).toJson(QJsonDocument::Compact);
    return QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex().left(32);
}

int Store::add(const QVector<QJsonObject> &records)
{
    database_.transaction();
    try {
        int added = 0;
        for (const QJsonObject &record : records) {
            added += add(record);
        }
        if (!database_.commit()) {
            throw BenchError(name_ + ": " + database_.lastError().text());
        }
        return added;
    } catch (const BenchError &) {
        database_.rollback();
        throw;
    }
}

bool Store::add(const QJsonObject &record)
{
    const QString key = keyOf(record), clock = record["begun"].toString();
    const QJsonObject unit = record["unit"].toObject();
    const QString machine = unit["machineId"].toString(), semi = unit["semiId"].toString();
    const QString line = record["line"].toString(), host = record["host"].toString();
    const QDateTime began = QDateTime::fromString(clock, Qt::ISODate);
    const QDateTime ended = QDateTime::fromString(record["ended"].toString(), Qt::ISODate);
    const QSqlQuery &query = run(
        "INSERT INTO runs VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"
        " ON CONFLICT (run) DO NOTHING",
        {key,
         !machine.isEmpty()    ? machine
             : !semi.isEmpty() ? semi
                               : "unknown-" + key.left(8),
         machine, semi, unit["model"].toString(), unit["version"].toString(),
         unit["crc"].toString(), line.isEmpty() ? host : line, record["operator"].toString(),
         record["subject"].toString(), began.toUTC().toString(Qt::ISODate), clock.left(10), clock,
         began.secsTo(ended), int(record["passed"].toBool()), record["folder"].toString()});
    if (query.numRowsAffected() == 0) {
        return false;
    }
    const QJsonArray levels = record["levels"].toArray();
    for (int i = 0; i < levels.size(); ++i) {
        addLevel(key, i + 1, levels[i].toObject());
    }
    return true;
}

// A list's texts, a line each.
static QString lines(const QJsonValue &list)
{
    return list.toVariant().toStringList().join('\n');
}

void Store::addLevel(const QString &key, int number, const QJsonObject &level)
{
    const QString name = level["level"].toString();
    run("INSERT INTO levels VALUES (?, ?, ?, ?, ?, ?, ?)",
        {key, number, name, level["plan"].toString(), level["planHash"].toString(),
         int(level["passed"].toBool()), lines(level["faults"])});
    const QJsonArray steps = level["steps"].toArray();
    for (int i = 0; i < steps.size(); ++i) {
        const QJsonObject step = steps[i].toObject();
        run("INSERT INTO steps VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
            {key, number, i + 1, name, lines(step["itemNames"]), step["name"].toString(),
             step["code"].toString(), step["reply"].toString(), step["meaning"].toString(),
             step["ms"].toDouble(), step["prescribedMs"].toDouble(), step["tries"].toInt(),
             int(step["passed"].toBool()), lines(step["faults"])});
        for (const QJsonValue &entry : step["values"].toArray()) {
            const QJsonObject value = entry.toObject();
            run("INSERT INTO measured VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
                {key, number, i + 1, name, value["name"].toString(), value["value"].toDouble(),
                 value["unit"].toString(), value["min"].toVariant(), value["max"].toVariant()});
        }
    }
}
