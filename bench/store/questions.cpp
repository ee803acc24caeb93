#include "panel/bencherror.h"
#include "store/store.h"

#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

QVector<QVariantMap> latestTests(Store &store, const Period &period, int count)
{
    QVector<QVariantMap> tests =
        store.rows("latest", {{"since", period.since}, {"until", period.until}, {"count", count}});
    std::reverse(tests.begin(), tests.end());
    return tests;
}

QVector<QVariantMap> historyOf(Store &store, const QString &id)
{
    return store.rows("history", {{"id", id.toLower()}});
}

QStringList findings(Store &store, const QVariantMap &test)
{
    QStringList lines = test["faults"].toString().split('\n', Qt::SkipEmptyParts);
    for (const QVariantMap &step : store.rows("failed", test))
        lines << step["name"].toString() + ": " + step["faults"].toString().replace('\n', "; ");
    for (const QVariantMap &value : store.rows("measured", test)) {
        const auto text = [&](const char *key) { return value[key].toString(); };
        const QString limits = QString(" (%1 to %2)").arg(text("lower_limit"), text("upper_limit"));
        lines << QString("%1 %2 %3").arg(text("name"), text("value"), text("measure"))
                + (value["lower_limit"].isNull() ? QString() : limits);
    }
    return lines;
}

static QByteArray csvCell(const QVariant &value)
{
    static const QRegularExpression special("[\",\r\n]"), formula("^[-=+@\t\r]");
    QString text = value.toString();
    if (value.type() == QVariant::String && text.contains(formula))
        text.prepend('\''); // what a panel sent is no formula of anyone's spreadsheet
    return text.contains(special) ? '"' + text.replace('"', "\"\"").toUtf8() + '"' : text.toUtf8();
}

void writeCsv(Store &store, const QString &table, const Period &period, const QString &id,
              QIODevice *out)
{
    if (!QStringList{"tests", "steps", "values"}.contains(table))
        throw BenchError("--csv takes tests, steps or values, not " + table);
    store.ask("csv_" + table,
              {{"since", period.since}, {"until", period.until}, {"id", id.toLower()}},
              [out](const QVariantList &row) {
                  QByteArrayList cells;
                  std::transform(row.begin(), row.end(), std::back_inserter(cells), csvCell);
                  const QByteArray line = cells.join(',') + "\r\n";
                  if (out->write(line) != line.size())
                      throw BenchError("the table cannot be written: " + out->errorString());
              });
}

QJsonObject yieldOf(Store &store, const Period &period)
{
    QJsonObject answers{{"since", period.since}, {"until", period.until}};
    for (const char *const question :
         {"units", "first", "failures", "whole", "values", "times", "retests", "longest"}) {
        QJsonArray answer;
        store.ask(QString("yield_") + question, {{"since", period.since}, {"until", period.until}},
                  [&](const QVariantList &row) { answer << QJsonArray::fromVariantList(row); });
        answer.removeFirst(); // the titles
        answers[question] = answer;
    }
    return answers;
}
