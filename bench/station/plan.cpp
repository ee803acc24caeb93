#include "station/plan.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/codec.h"
#include "station/protocol.h"
#include "station/stand.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>

QString planFolder()
{
    return dataFolder() + "/bench/plans";
}

static QJsonObject tableOf(const QString &folder, const QString &file)
{
    return readJson((QFile::exists(folder + file) ? folder : planFolder()) + file);
}

QStringList levelItems(int level, const QString &folder)
{
    return textsOf(tableOf(folder, "/items.json")[levelName(level)]);
}

QJsonArray actionsOf(const QString &folder)
{
    return tableOf(folder, "/actions.json")["actions"].toArray();
}

static QRegularExpressionMatchIterator placeholders(const QString &text)
{
    static const QRegularExpression placeholder("\\$\\{(\\w+)\\}");
    return placeholder.globalMatch(text);
}

void addTo(Values *values, const QJsonObject &more)
{
    for (const QString &name : more.keys())
        values->insert(name, more[name].toVariant().toString());
}

QString expand(const QString &text, const Values &values, bool pattern)
{
    QString result;
    int from = 0;
    for (auto all = placeholders(text); all.hasNext();) {
        const QRegularExpressionMatch match = all.next();
        const QString value = values.value(match.captured(1));
        result += text.mid(from, match.capturedStart() - from)
            + (pattern ? QRegularExpression::escape(value) : value);
        from = match.capturedEnd();
    }
    return result + text.mid(from);
}

namespace {

// What a step may have, and in what form.
const QJsonObject &keys()
{
    static const QJsonObject file = readJson(planFolder() + "/keys.json");
    return file;
}

QStringList keyProblems(const QJsonObject &row)
{
    const QJsonObject known = keys()["step"].toObject();
    Values forms;
    addTo(&forms, keys()["forms"].toObject());
    QStringList problems;
    for (const QString &key : row.keys()) {
        const QString form = expand(expand(known[key]["form"].toString(), forms), forms);
        const QByteArray value = QJsonDocument(QJsonArray{row[key]}).toJson(QJsonDocument::Compact);
        const QJsonArray range = key == "battery" ? row[key].toArray() : QJsonArray();
        if (!known.contains(key))
            problems << QString("unknown key \"%1\"; known are %2")
                            .arg(key, QStringList(known.keys()).join(", "));
        else if (!QRegularExpression("^\\[(?:" + form + ")\\]$").match(value).hasMatch()
                 || range[0].toInt() > range[1].toInt())
            problems << QString("\"%1\" must be %2").arg(key, known[key]["must be"].toString());
    }
    return problems;
}

QStringList valueProblems(const QString &text, const Values &values, Plan *plan)
{
    QStringList problems;
    for (auto all = placeholders(text); all.hasNext();) {
        const QString name = all.next().captured(1);
        plan->uses << name;
        if (!values.contains(name))
            problems << QString("nobody says what ${%1} is (--set %1=...)").arg(name);
    }
    return problems;
}

QString codeProblem(const Step &step, const Values &values, int level)
{
    const QString code = step["code"].toString();
    const Command *command = findCommand(code.toLatin1());
    if (!step["raw"].toString().isEmpty())
        return {};
    if (!command)
        return QString("no panel knows the code \"%1\"").arg(code);
    if (!command->allowedAt(level) && !step["silence"].toBool())
        return QString("the code %1 is not allowed at level %2").arg(code, levelName(level));
    try {
        requestOf(command->code, expand(step["argument"].toString(), values));
    } catch (const BenchError &wrong) {
        return wrong.what();
    }
    return {};
}

QStringList stepProblems(const Step &step, const Values &values, Plan *plan)
{
    QStringList problems{codeProblem(step, values, plan->level)};
    for (const char *const when : {"before", "during", "after"}) {
        for (const QString &action : textsOf(step[when]))
            problems << actionFault(action, plan->actions);
    }
    for (const QJsonValue &item : step["items"].toArray()) {
        if (item.toInt() < 1 || item.toInt() > plan->items.size())
            problems
                << QString("level %1 has no item %2").arg(levelName(plan->level)).arg(item.toInt());
    }
    const QString text = step["text"].toString();
    if (!QRegularExpression(expand(text, values, true)).isValid())
        problems << "not a regular expression: " + text;
    const bool change = step["code"] == "KLV-" && step["raw"].toString().isEmpty();
    problems += valueProblems(text + step["reply"].toString() + step["bytes"].toString()
                                  + step["argument"].toString() + (change ? "${model}" : ""),
                              values, plan);
    problems.removeAll({});
    return problems;
}

void readSteps(const QJsonArray &rows, const Values &values, Plan *plan)
{
    for (const QJsonValue &value : rows) {
        const QJsonObject row = value.toObject();
        const QString name = row["name"].toString();
        plan->steps << stepOf(row, plan->items);
        for (const QString &problem :
             keyProblems(row) + stepProblems(plan->steps.last(), values, plan))
            plan->problems << QString("%1, step %2%3: %4")
                                  .arg(plan->file)
                                  .arg(plan->steps.size())
                                  .arg(name.isEmpty() ? name : " \"" + name + '"', problem);
    }
    if (plan->steps.isEmpty())
        plan->problems << plan->file + ": \"steps\" holds none";
}

} // namespace

Step stepOf(const QJsonObject &row, const QStringList &items)
{
    const QJsonObject known = keys()["step"].toObject();
    const QJsonValue item = row["item"];
    const QByteArray raw = row["raw"].toString().toLatin1();
    const Command *command =
        raw.isEmpty() ? findCommand(row["code"].toString().toLatin1()) : commandOf(raw);
    Step step = row;
    for (const QString &key : known.keys()) {
        if (!row.contains(key) && known[key].toObject().contains("else"))
            step[key] = known[key]["else"];
    }
    if (command)
        step["code"] = textOf(command->code);
    if (command && !row.contains("reply"))
        step["reply"] = textOf(command->pass());
    if (step["silence"].toBool())
        step["wait"] = step["timeout"]; // all of it is prescribed
    step["argument"] = step["argument"].toVariant().toString();
    step["items"] = item.isDouble() ? QJsonArray{item} : item.toArray();
    QStringList names;
    for (const QJsonValue &number : step["items"].toArray())
        names << items.value(number.toInt() - 1);
    step["itemNames"] = QJsonArray::fromStringList(names);
    return step;
}

Plan loadPlan(const QString &path, const Values &values)
{
    Plan plan;
    plan.file = QFileInfo(path).fileName();
    try {
        const QJsonObject root = readJson(path);
        plan.hash = QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha256).toHex();
        plan.level = levelByName(root["level"].toString());
        if (plan.level < 0) {
            plan.problems << plan.file + ": \"level\" must be ICT, T1, BI or T2";
            return plan;
        }
        plan.items = levelItems(plan.level, QFileInfo(path).path());
        plan.actions = actionsOf(QFileInfo(path).path());
        readSteps(root["steps"].toArray(), values, &plan);
        QSet<QString> covered;
        for (const Step &step : plan.steps) {
            for (const QString &name : textsOf(step["itemNames"]))
                covered << name;
        }
        for (const QString &item : root["partial"].toBool() ? QStringList() : plan.items) {
            if (!covered.contains(item))
                plan.problems << QString("%1: no step covers item \"%2\"").arg(plan.file, item);
        }
    } catch (const BenchError &error) {
        plan.problems << error.what();
    }
    return plan;
}
