#pragma once

#include "station/runner.h"

struct Report {
    QString title;
    QString subject; // the panel: its port, its station number
    QDateTime begun = QDateTime::currentDateTime();
    QVector<LevelResult> levels;

    bool passed() const;
    // One line a fault, with level and step; empty when passed.
    QStringList faults() const;
};

// Writes report.html (self-contained, screens included), report.json, junit.xml and every screen as
// PNG into `folder`, which is created. Returns what went wrong, empty for nothing.
QString writeReport(const Report &report, const QString &folder);
