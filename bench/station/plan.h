#pragma once

#include <QHash>
#include <QSet>
#include <QStringList>
#include <QVector>

using Values = QHash<QString, QString>; // what "${name}" in a plan stands for

// One exchange of a plan, with what must be done around it.
struct Step {
    QVector<int> items; // numbers (from 1) of the items it covers; empty for none
    QString name;
    QByteArray code; // as in protocol.h
    QByteArray raw; // the request's bytes, in place of a code; empty for none
    QString argument; // the ID, the colour, the level to go to, or the clock's offset in seconds
    bool addressed = false; // sent to the panel's station number instead of 00

    enum Expect { Payload, Text, Bytes, Battery, Silence } expect = Payload;
    QString reply; // payload, regular expression for the whole text, or bytes; "${name}" allowed
    QString expected; // what a text should be, in words; empty: its pattern says it
    int minimumMv = 0, maximumMv = 0; // Battery

    int timeoutMs = 2000;
    int repeats = 2; // how often an unanswered request is sent again
    int waitMs = 0; // what the test itself prescribes to wait
    QStringList before, during, after; // actions, "verb argument" (stand.h)
};

struct Plan {
    QString file; // base name
    QByteArray hash; // SHA-256 of its text, as hex digits
    int level = -1;
    QStringList items; // the level's item lines without their ": 0"
    bool partial = false; // leaves items out on purpose
    QVector<Step> steps;
    QSet<QString> uses; // names of the values it needs
    QStringList problems; // "file, step: what is wrong", empty for a plan that may run
};

// Reads and checks a plan: keys unknown, mistyped or out of range, unknown codes, codes that the
// level does not allow, unknown actions, values not in `values`, items that no step covers. The
// items come from items.json beside the plan, else from the bench's own. See Plan::problems.
Plan loadPlan(const QString &file, const Values &values);
// `text` with every "${name}" replaced; escaped for a regular expression if `pattern`.
QString expand(const QString &text, const Values &values, bool pattern = false);
// The request of a step as bytes; `number` is the panel's station number.
QByteArray requestOf(const Step &step, const Values &values, int number);
// Where the bench's own plans lie.
QString planFolder();
// The item lines of a level, without their ": 0"; from items.json in `folder`, else the bench's
// own.
QStringList levelItems(int level, const QString &folder = planFolder());
