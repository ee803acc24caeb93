#pragma once

#include "store/store.h"

#include <QIODevice>

// What is asked of a store. A test is one level of a run. Days are those of the line.
struct Period {
    QString since = "0000", until = "9999"; // as "2026-11-21", both inclusive
};

// The latest tests, oldest first: run, nr (of the level in it), clock, passed, unit, level, line,
// operator, report, semi, model, version, faults (of the panel as a whole).
QVector<QVariantList> latestTests(Store &store, const Period &period, int count);
// The same, all of the units whose machine or semi-finished ID is like `id` ("%": anything), those
// included where only the other of the unit's two IDs was known.
QVector<QVariantList> historyOf(Store &store, const QString &id);
// What was found in such a test, a line each: failed steps, then measured values.
QStringList findings(Store &store, const QVariantList &test);

// Writes the table "tests", "steps" or "values" as CSV with a line of titles, of units with an ID
// like `id`. Throws BenchError when there is no such table.
void writeCsv(Store &store, const QString &table, const Period &period, const QString &id,
              QIODevice *out);
// What bench/report/yield.html shows, which describes it.
QJsonObject yieldOf(Store &store, const Period &period);
