#pragma once

#include <QCommandLineParser>
#include <QJsonObject>
#include <QMap>

// --store, and which one it is: unless somebody says otherwise, a file in the folder that --report
// names.
QCommandLineOption storeOption();
QString storeOf(const QCommandLineParser &parser);

// Stores the runs with these records, each by the folder of its report, and those that still wait
// below `base`. When the store cannot be reached they wait there, which is said: nothing that
// happens here ends a test.
void storeRuns(const QMap<QString, QJsonObject> &records, const QString &where,
               const QString &base);

// Hands in what waits for the store below `base`. Returns how many runs were new to it. Throws
// BenchError when it cannot be reached; then everything still waits.
int handInWaiting(const QString &where, const QString &base);
// The same with records in files, report.json for example, or in all .json files of folders; the
// files stay. Those that hold none are named and left out.
int handIn(const QString &where, const QStringList &paths);
