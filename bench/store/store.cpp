#include "store/store.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/plan.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlRecord>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>

// A text of store.sql, with those that it names put in.
static QString sql(const QString &name)
{
    static const Values texts = [] {
        Values texts;
        const QString all = readFile(dataFolder() + "/bench/store/store.sql");
        for (const QString &text : all.split("\n-- @").mid(1))
            texts[text.section('\n', 0, 0)] = text.section('\n', 1).trimmed();
        return texts;
    }();
    return expand(expand(texts[name], texts), texts);
}

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
    if (!QUrlQuery(url).hasQueryItem("options"))
        options << "options=--lock_timeout=20000"; // ms
    for (const auto &[name, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded))
        options << name + '=' + value;
    server.setConnectOptions(options.join(';'));
    return server;
}

QString Store::nameOf(const QString &where)
{
    QUrl url(where);
    if (!url.scheme().startsWith("postgres"))
        return where;
    QUrlQuery options(url);
    for (const char *const secret : {"password", "sslpassword"})
        options.removeAllQueryItems(secret);
    url.setQuery(options);
    return url.toDisplayString(QUrl::RemovePassword);
}

QString Store::fault(const QSqlError &error) const
{
    return name_ + ": " + error.text().trimmed();
}

Store::Store(const QString &where)
    : name_(nameOf(where))
    , database_(connectionOf(where))
{
    if (!database_.open()) {
        const QString text = database_.lastError().text().trimmed();
        const char *const remedy = database_.isValid() ? "" : "; install libqt5sql5-psql";
        throw BenchError(QString("the store %1 cannot be opened: %2%3").arg(name_, text, remedy));
    }
    makeTables();
}

// Once only: who may write into the tables need not be allowed to make them.
void Store::makeTables()
{
    const auto areThere = [this] { return !database_.record("runs").isEmpty(); };
    if (areThere())
        return;
    QSqlQuery query(database_);
    database_.transaction();
    for (const QString &statement : sql("schema").split(';')) {
        if (query.exec(statement))
            continue;
        database_.rollback();
        if (areThere()) // another station has made them meanwhile
            return;
        throw BenchError(fault(query.lastError()));
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

// As a store takes it.
static QVariant stored(const QVariant &value)
{
    switch (value.type()) {
    case QVariant::Bool:
        return value.toInt();
    case QVariant::List: // texts, a line each
        return stored(value.toStringList().join('\n'));
    case QVariant::String: // empty is not unknown, and PostgreSQL has no zero character
        return QString("%1").arg(value.toString().remove(QChar(0)));
    default:
        return value;
    }
}

QSqlQuery &Store::run(const QString &name, const QVariantMap &parameters)
{
    static const QRegularExpression parameter(":(\\w+)");
    const QString text = sql(name);
    if (!prepared_.contains(name)) {
        prepared_.insert(name, QSqlQuery(database_));
        prepared_[name].setForwardOnly(true);
        if (!prepared_[name].prepare(text))
            throw BenchError(fault(prepared_.take(name).lastError()));
    }
    QSqlQuery &query = prepared_[name];
    for (auto all = parameter.globalMatch(text); all.hasNext();) {
        const QString key = all.next().captured(1);
        query.bindValue(':' + key, stored(parameters.value(key)));
    }
    if (!query.exec())
        throw BenchError(fault(query.lastError()));
    return query;
}

void Store::ask(const QString &question, const QVariantMap &parameters,
                const std::function<void(const QVariantList &row)> &take)
{
    QSqlQuery &query = run(question, parameters);
    const QSqlRecord record = query.record();
    QVariantList row;
    for (int i = 0; i < record.count(); ++i)
        row << record.fieldName(i);
    take(row);
    while (query.next()) {
        for (int i = 0; i < record.count(); ++i)
            row[i] = query.isNull(i) ? QVariant() : query.value(i);
        take(row);
    }
    query.finish();
}

QVector<QVariantMap> Store::rows(const QString &question, const QVariantMap &parameters)
{
    QVariantList titles;
    QVector<QVariantMap> rows;
    ask(question, parameters, [&](const QVariantList &row) {
        if (titles.isEmpty()) {
            titles = row;
            return;
        }
        rows << QVariantMap();
        for (int i = 0; i < row.size(); ++i)
            rows.last()[titles[i].toString()] = row[i];
    });
    return rows;
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
        const auto added = std::count_if(records.begin(), records.end(),
                                         [this](const QJsonObject &record) { return add(record); });
        if (!database_.commit())
            throw BenchError(fault(database_.lastError()));
        return int(added);
    } catch (const BenchError &) {
        database_.rollback();
        throw;
    }
}

// The first that is not empty.
static QString firstOf(QStringList texts)
{
    texts.removeAll({});
    return texts.value(0);
}

bool Store::add(const QJsonObject &record)
{
    const QString key = keyOf(record), clock = record["begun"].toString();
    const QDateTime began = QDateTime::fromString(clock, Qt::ISODate);
    const QDateTime ended = QDateTime::fromString(record["ended"].toString(), Qt::ISODate);
    QVariantMap run = record.toVariantMap();
    run.insert(record["unit"].toObject().toVariantMap());
    run["run"] = key;
    run["name"] =
        firstOf({run["machineId"].toString(), run["semiId"].toString(), "unknown-" + key.left(8)});
    run["line"] = firstOf({run["line"].toString(), run["host"].toString()});
    run["began"] = began.toUTC().toString(Qt::ISODate);
    run["day"] = clock.left(10);
    run["seconds"] = began.secsTo(ended);
    if (this->run("add run", run).numRowsAffected() == 0)
        return false;
    int number = 0;
    for (const QJsonValue &level : record["levels"].toArray())
        addLevel(level.toObject().toVariantMap(), key, ++number);
    return true;
}

void Store::addLevel(QVariantMap level, const QString &key, int number)
{
    QVariantMap where{{"run", key}, {"levelNr", number}, {"nr", 0}, {"level", level["level"]}};
    level.insert(where);
    run("add level", level);
    for (const QVariant &row : level["steps"].toList()) {
        QVariantMap step = row.toMap();
        where["nr"] = where["nr"].toInt() + 1;
        step.insert(where);
        run("add step", step);
        for (const QVariant &entry : step["values"].toList()) {
            QVariantMap value = entry.toMap();
            value.insert(where);
            run("add value", value);
        }
    }
}
