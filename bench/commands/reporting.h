#pragma once

#include "station/report.h"

#include <QCommandLineParser>

// What the commands that test panels have in common.

// --report, in which `base` is the folder unless somebody says otherwise, --operator, --line,
// --store, --plans and --verbose.
QList<QCommandLineOption> reportOptions(const QString &base);
// The report of a unit that is about to be tested.
Report reportOf(const QCommandLineParser &parser, const QString &subject, const Values &given);
