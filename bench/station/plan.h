#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QStringList>
#include <QVector>

using Values = QHash<QString, QString>; // what "${name}" in a plan stands for

// One exchange of a plan, with what must be done around it: its keys as docs/plans.md describes
// them, those of keys.json all there that have a value of their own, and "items" (numbers) and
// "itemNames" as lists.
using Step = QJsonObject;

struct Plan {
    QString file; // base name
    QByteArray hash; // SHA-256 of its text, as hex digits
    int level = -1;
    QStringList items; // the level's item lines without their ": 0"
    QJsonArray actions; // what may be asked of its stand: rows of actions.json
    QVector<Step> steps;
    QSet<QString> uses; // names of the values it needs
    QStringList problems; // "file, step: what is wrong", empty for a plan that may run
};

// Reads and checks a plan: keys unknown, mistyped or out of range, unknown codes, codes that the
// level does not allow, unknown actions, values not in `values`, items that no step covers. See
// Plan::problems.
Plan loadPlan(const QString &file, const Values &values);
// A step from a row of a plan.
Step stepOf(const QJsonObject &row, const QStringList &items = {});
// Puts the texts of an object, and its numbers as such, into `values`.
void addTo(Values *values, const QJsonObject &more);
// `text` with every "${name}" replaced; escaped for a regular expression if `pattern`.
QString expand(const QString &text, const Values &values, bool pattern = false);
// Where the bench's own plans lie.
QString planFolder();
// What items.json and actions.json hold, each from `folder` if it is there, else the bench's own:
// the item lines of a level, without their ": 0", and the rows of the actions.
QStringList levelItems(int level, const QString &folder = planFolder());
QJsonArray actionsOf(const QString &folder = planFolder());
