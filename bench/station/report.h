#pragma once

#include "station/plan.h"

#include <QDateTime>
#include <QImage>
#include <QJsonDocument>
#include <QMap>

// What was done to one unit.
struct Report {
    QString subject; // where it was: its port, its station number
    Values given; // what the station was told of the unit
    QString operatorName, line; // who tests, and on which production line
    QDateTime begun = QDateTime::currentDateTime();
    QDateTime ended; // invalid: not yet
    QVector<QJsonObject> levels; // as in the record, but for "passed"
    QMap<QString, QImage> screens; // by the names of their files

    // A new level, on which the runner and the others here go on.
    void begin(const QString &level);
    void fault(const QString &text); // of the panel as a whole, or of the place where it stands
    void take(const QMap<QString, QImage> &screens); // by their own names

    bool passed() const;
    // One line a fault, with level and step; empty when passed.
    QStringList faults() const;
    // Who the unit is: machineId and semiId as given, else as it answered; model, version, crc and
    // toolVersion (of its fixture) as it answered, else as given. Unknown ones are left out.
    Values unit() const;
};

// The whole run as one document: all that the reports show, and nothing else. docs/bench.md
// describes it.
QJsonObject recordOf(const Report &report);
// A page of bench/report with its data in it: between script tags nothing is escaped but "<".
// Throws BenchError.
QByteArray pageOf(const QString &name, const QJsonDocument &data);

// Makes a new folder for a report, BASE/UNIT/TIMESTAMP, UNIT being the machine ID, else the semi
// ID, else the subject, and writes the report of a run that has not ended into it. Throws
// BenchError when that cannot be done.
QString beginReport(const Report &report, const QString &base);
// Writes report.html (self-contained, screens included: report/page.html with the record in it),
// report.json (the record), junit.xml and every screen as PNG into `folder` from beginReport().
// Returns where they are: there, or below `base` where the unit's ID has come to be known, or when
// it cannot be written, which is said, in a new folder for temporary files. Throws BenchError when
// that fails too.
QString writeReport(const Report &report, const QString &base, const QString &folder);
// Writes one page with all the reports, its first part an index; over that of an earlier run.
// Empty, or what went wrong.
QString writePage(const QVector<Report> &reports, const QString &file);
