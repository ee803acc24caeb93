#pragma once

#include "station/runner.h"

#include <QJsonObject>

struct Report {
    QString title;
    QString subject; // the panel: its port, its station number
    QDateTime begun = QDateTime::currentDateTime();
    QVector<LevelResult> levels;

    bool passed() const;
    // One line a fault, with level and step; empty when passed.
    QStringList faults() const;
};

// The whole run as one document: all that the reports show, and nothing else.
QJsonObject recordOf(const Report &report);

// Writes the report of a run that has not ended into `folder`, which is created, over that of an
// earlier run. Throws BenchError when the folder cannot be written.
void beginReport(const Report &report, const QString &folder);
// Writes report.html (self-contained, screens included: report/page.html with the record in it),
// report.json (the record), junit.xml and every screen as PNG. Returns the folder: `folder`, or
// when it cannot be written, which is said, a new one for temporary files. Throws BenchError when
// that fails too.
QString writeReport(const Report &report, const QString &folder);
