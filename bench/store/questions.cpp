#include "store/questions.h"

#include "panel/bencherror.h"

#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

static const QString tests = "SELECT r.run, l.nr, r.clock, l.passed, r.unit, l.level, r.line,"
                             " r.operator, r.report, r.semi, r.model, r.version, l.faults"
                             " FROM runs r JOIN levels l ON l.run = r.run";

QVector<QVariantList> latestTests(Store &store, const Period &period, int count)
{
    QVector<QVariantList> rows =
        store.rows(tests + " WHERE r.day BETWEEN ? AND ? ORDER BY r.began DESC, l.nr DESC LIMIT ?",
                   {period.since, period.until, count});
    std::reverse(rows.begin(), rows.end());
    return rows;
}

QVector<QVariantList> historyOf(Store &store, const QString &id)
{
    const QString like = id.toLower();
    return store.rows("WITH found AS (SELECT run, machine, semi FROM runs WHERE lower(unit) LIKE ?"
                      " OR lower(machine) LIKE ? OR lower(semi) LIKE ?) "
                          + tests
                          + " WHERE r.run IN (SELECT run FROM found)"
                            " OR r.machine <> '' AND r.machine IN (SELECT machine FROM found)"
                            " OR r.semi <> '' AND r.semi IN (SELECT semi FROM found)"
                            " ORDER BY r.began, l.nr",
                      {like, like, like});
}

QStringList findings(Store &store, const QVariantList &test)
{
    const QVariantList which = test.mid(0, 2);
    QStringList lines = test.last().toString().split('\n', Qt::SkipEmptyParts);
    for (const QVariantList &step : store.rows("SELECT name, faults FROM steps WHERE run = ? AND"
                                               " level_nr = ? AND passed = 0 ORDER BY nr",
                                               which)) {
        lines << step[0].toString() + ": " + step[1].toString().replace('\n', "; ");
    }
    for (const QVariantList &value :
         store.rows("SELECT name, value, measure, lower_limit, upper_limit FROM measured"
                    " WHERE run = ? AND level_nr = ? ORDER BY nr, name",
                    which)) {
        lines << QString("%1 %2 %3")
                     .arg(value[0].toString(), value[1].toString(), value[2].toString());
        if (!value[3].isNull()) {
            lines.last() += QString(" (%1 to %2)").arg(value[3].toString(), value[4].toString());
        }
    }
    return lines;
}

static QByteArray csvCell(const QVariant &value)
{
    static const QRegularExpression special("[\",\r\n]");
    QString text = value.toString();
    if (value.type() == QVariant::String && QString("=+-@\t\r").contains(text.left(1))
        && !text.isEmpty()) {
        text.prepend('\''); // what a panel sent is no formula of anyone's spreadsheet
    }
    return text.contains(special) ? '"' + text.replace('"', "\"\"").toUtf8() + '"' : text.toUtf8();
}

static QByteArray csvLine(const QVariantList &cells)
{
    QByteArray line;
    for (const QVariant &cell : cells) {
        line += (line.isNull() ? "" : ",") + csvCell(cell);
    }
    return line + "\r\n";
}

void writeCsv(Store &store, const QString &table, const Period &period, const QString &id,
              QIODevice *out)
{
    static const QHash<QString, QString> columns = {
        {"tests",
         "r.clock, r.seconds, r.line, r.operator, r.subject, r.unit, r.machine, r.semi, r.model,"
         " r.version, r.crc, t.nr, t.level, t.plan, t.plan_hash, t.passed, t.faults, r.report,"
         " r.run FROM levels t"},
        {"steps",
         "r.clock, r.line, r.unit, t.level, t.nr, t.items, t.name, t.code, t.reply, t.meaning,"
         " t.ms, t.prescribed_ms, t.tries, t.passed, t.faults, r.run FROM steps t"},
        {"values",
         "r.clock, r.line, r.unit, t.level, t.nr, t.name, t.value, t.measure, t.lower_limit,"
         " t.upper_limit, r.run FROM measured t"}};
    if (!columns.contains(table)) {
        throw BenchError("--csv takes tests, steps or values, not " + table);
    }
    const QString like = id.toLower();
    store.each("SELECT " + columns[table]
                   + " JOIN runs r ON r.run = t.run WHERE r.day BETWEEN ? AND ? AND"
                     " (lower(r.machine) LIKE ? OR lower(r.semi) LIKE ? OR lower(r.unit) LIKE ?)"
                     " ORDER BY r.began, r.run, t.nr",
               {period.since, period.until, like, like, like},
               [out](const QVariantList &row) { out->write(csvLine(row)); });
}

QJsonObject yieldOf(Store &store, const Period &period)
{
    // Each unit's tests of a level are counted from its very first on, in the period or not.
    static const QString counted =
        "WITH tests AS (SELECT r.unit, r.day, r.line, r.clock, r.began, l.level, l.passed,"
        " ROW_NUMBER() OVER (PARTITION BY r.unit, l.level ORDER BY r.began, r.run, l.nr) AS nth,"
        " ROW_NUMBER() OVER (PARTITION BY r.unit, l.level ORDER BY r.began DESC, r.run DESC,"
        " l.nr DESC) AS back FROM runs r JOIN levels l ON l.run = r.run) ";
    static const QString when = " r.day BETWEEN ? AND ? ", then = " day BETWEEN ? AND ? ";
    static const QString joined = " t JOIN runs r ON r.run = t.run WHERE" + when;
    static const QHash<QString, QString> questions = {
        {"units", "SELECT COUNT(DISTINCT unit), COUNT(*) FROM runs WHERE" + then},
        {"first",
         counted + "SELECT day, line, level, COUNT(*), SUM(passed) FROM tests WHERE nth = 1 AND"
             + then + "GROUP BY day, line, level ORDER BY day, line, level"},
        {"failures",
         "SELECT t.level, t.name, t.items, t.faults, COUNT(*) FROM steps" + joined
             + "AND t.passed = 0 GROUP BY t.level, t.name, t.items, t.faults ORDER BY 5 DESC"},
        {"whole",
         "SELECT t.level, t.faults, COUNT(*) FROM levels" + joined
             + "AND t.faults <> '' GROUP BY t.level, t.faults ORDER BY 3 DESC"},
        {"values",
         "SELECT t.level, t.name, t.measure, t.lower_limit, t.upper_limit, t.value, COUNT(*)"
         " FROM measured"
             + joined
             + "GROUP BY t.level, t.name, t.measure, t.lower_limit,"
               " t.upper_limit, t.value ORDER BY t.level, t.name, t.value"},
        {"times",
         "SELECT t.level, t.name, t.code, t.prescribed_ms, ROUND(t.ms / 5) * 5, COUNT(*)"
         " FROM steps"
             + joined
             + "GROUP BY t.level, t.name, t.code, t.prescribed_ms,"
               " ROUND(t.ms / 5) * 5 ORDER BY t.level, t.code, t.name, 5"},
        {"retests",
         counted + "SELECT level, nth, COUNT(*), SUM(passed) FROM tests WHERE back = 1 AND" + then
             + "GROUP BY level, nth ORDER BY level, nth"},
        {"longest",
         counted
             + "SELECT unit, level, nth, passed, clock, line FROM tests WHERE back = 1 AND"
               " nth > 1 AND"
             + then + "ORDER BY passed, nth DESC, began DESC LIMIT 25"}};
    QJsonObject answers{{"since", period.since}, {"until", period.until}};
    for (auto question = questions.begin(); question != questions.end(); ++question) {
        QJsonArray answer;
        for (const QVariantList &row : store.rows(question.value(), {period.since, period.until})) {
            answer << QJsonArray::fromVariantList(row);
        }
        answers[question.key()] = answer;
    }
    return answers;
}
