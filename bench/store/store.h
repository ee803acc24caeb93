#pragma once

#include <QHash>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>
#include <QVector>

#include <functional>

// Where the runs of all units are: an SQLite file, or the PostgreSQL database that
// postgresql://[USER[:PASSWORD]@]HOST[:PORT]/NAME[?OPTION=VALUE&...] names. Its tables, which
// docs/bench.md describes, are made when they are missing. For one thread.
class Store {
public:
    // Throws BenchError when it cannot be opened.
    explicit Store(const QString &where);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Adds the runs with these records (docs/bench.md) that are not there yet, all or, with
    // BenchError, none. How many are new.
    int add(const QVector<QJsonObject> &records);
    // The rows that a question gives, its parameters bound. Throws BenchError.
    QVector<QVariantList> rows(const QString &sql, const QVariantList &parameters = {});
    // The same one by one, for millions; first the titles.
    void each(const QString &sql, const QVariantList &parameters,
              const std::function<void(const QVariantList &)> &take);

    // A run's key, the same wherever and as often as its record is handed in.
    static QString keyOf(QJsonObject record);
    // `where` as it may be shown and logged: without the password.
    static QString nameOf(const QString &where);

private:
    QSqlQuery &run(const QString &sql, const QVariantList &parameters = {});
    bool add(const QJsonObject &record);
    void addLevel(const QString &key, int number, const QJsonObject &level);

    QString name_;
    QSqlDatabase database_;
    QHash<QString, QSqlQuery> prepared_; // by text
};
