#pragma once

#include <QHash>
#include <QIODevice>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>
#include <QVector>

#include <functional>

// Where the runs of all units are: an SQLite file, or the PostgreSQL database that
// postgresql://[USER[:PASSWORD]@]HOST[:PORT]/NAME[?OPTION=VALUE&...] names. Its tables, which
// docs/bench.md describes, are made when they are missing. What is said to it stands in store.sql;
// its questions are named as there. For one thread. All of it throws BenchError.
class Store {
public:
    explicit Store(const QString &where);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Adds the runs with these records (docs/bench.md) that are not there yet, all or, with
    // BenchError, none. How many are new.
    int add(const QVector<QJsonObject> &records);
    // The rows that answer a question; first the titles.
    void ask(const QString &question, const QVariantMap &parameters,
             const std::function<void(const QVariantList &row)> &take);
    // All of them, by title.
    QVector<QVariantMap> rows(const QString &question, const QVariantMap &parameters);

    // A run's key, the same wherever and as often as its record is handed in.
    static QString keyOf(QJsonObject record);
    // `where` as it may be shown and logged: without the password.
    static QString nameOf(const QString &where);

private:
    void makeTables();
    QSqlQuery &run(const QString &name, const QVariantMap &parameters);
    bool add(const QJsonObject &record);
    void addLevel(QVariantMap level, const QString &key, int number);
    QString fault(const QSqlError &error) const;

    QString name_;
    QSqlDatabase database_;
    QHash<QString, QSqlQuery> prepared_; // by name
};

// A test is one level of a run. Days are those of the line, both inclusive.
struct Period {
    QString since = "0000", until = "9999"; // as "2026-11-21"
};

// The latest tests, oldest first.
QVector<QVariantMap> latestTests(Store &store, const Period &period, int count);
// All of the units whose machine or semi-finished ID is like `id` ("%": anything), those included
// where only the other of the unit's two IDs was known.
QVector<QVariantMap> historyOf(Store &store, const QString &id);
// What was found in such a test, a line each: failed steps, then measured values.
QStringList findings(Store &store, const QVariantMap &test);
// Writes "tests", "steps" or "values" as CSV with a line of titles, of units with an ID like `id`.
// Throws BenchError when there is no such table.
void writeCsv(Store &store, const QString &table, const Period &period, const QString &id,
              QIODevice *out);
// What bench/report/yield.html shows, which describes it.
QJsonObject yieldOf(Store &store, const Period &period);
