#include "station/plan.h"

#include "panel/folders.h"
#include "station/codec.h"
#include "station/protocol.h"
#include "station/stand.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

static const QRegularExpression &placeholder()
{
    static const QRegularExpression regex("\\$\\{(\\w+)\\}");
    return regex;
}

QString planFolder()
{
    return dataFolder() + "/bench/plans";
}

QStringList levelItems(int level)
{
    QFile file(planFolder() + "/items.json");
    QStringList items;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QJsonValue &item :
             QJsonDocument::fromJson(file.readAll())[levelName(level)].toArray()) {
            items << item.toString();
        }
    }
    return items;
}

QString expand(const QString &text, const Values &values, bool pattern)
{
    QString result = text;
    QRegularExpressionMatch match;
    int from = 0;
    while ((match = placeholder().match(result, from)).hasMatch()) {
        const QString value = values.value(match.captured(1));
        const QString put = pattern ? QRegularExpression::escape(value) : value;
        result.replace(match.capturedStart(), match.capturedLength(), put);
        from = match.capturedStart() + put.size();
    }
    return result;
}

QByteArray requestOf(const Step &step, const Values &values, int number)
{
    const QByteArray argument = expand(step.argument, values).toLatin1();
    if (step.code == "8D" || step.code == "8E") {
        return clockRequest(step.code, QDateTime::currentDateTime().addSecs(argument.toInt()));
    }
    if (step.code.startsWith("060")) {
        return identityRequest(0, step.code, argument);
    }
    if (step.code == "9510") {
        return colourRequest(argument);
    }
    if (step.code == "KLV-") {
        return gotoRequest(values.value("model").toLatin1(), wireLevel(argument));
    }
    return shortRequest(step.addressed ? number : 0, step.code);
}

namespace {
// One plan file being read: collects what is wrong with it.
struct Reader {
    Plan plan;
    const Values &values;

    void problem(int line, const QString &what)
    {
        plan.problems << QString("%1:%2: %3").arg(plan.file).arg(line).arg(what);
    }
    void checkValues(int line, const QString &text)
    {
        auto matches = placeholder().globalMatch(text);
        while (matches.hasNext()) {
            const QString name = matches.next().captured(1);
            if (!values.contains(name)) {
                problem(line, QString("nobody says what ${%1} is (--set %1=...)").arg(name));
            }
        }
    }
    QStringList actions(const QJsonValue &value, int line)
    {
        QStringList list;
        for (const QJsonValue &action : value.toArray()) {
            list << action.toString();
            const QString fault = actionFault(action.toString());
            if (!fault.isEmpty()) {
                problem(line, fault);
            }
        }
        return list;
    }
    Step step(const QJsonObject &object, int line);
    void check(const Step &step);
    void covered();
};
}

static const QStringList &stepKeys()
{
    static const QStringList keys = {"item",    "name", "code",    "argument", "addressed",
                                     "reply",   "text", "battery", "silence",  "timeout",
                                     "repeats", "wait", "before",  "during",   "after"};
    return keys;
}

Step Reader::step(const QJsonObject &object, int line)
{
    for (const QString &key : object.keys()) {
        if (!stepKeys().contains(key)) {
            problem(line,
                    QString("unknown key \"%1\"; known are %2").arg(key, stepKeys().join(", ")));
        }
    }
    Step step;
    step.line = line;
    const QJsonValue item = object["item"];
    for (const QJsonValue &number : item.isArray() ? item.toArray() : QJsonArray{item}) {
        if (number.isDouble()) {
            step.items << number.toInt();
        }
    }
    step.name = object["name"].toString();
    step.code = object["code"].toString().toLatin1();
    step.argument = object["argument"].toVariant().toString();
    step.addressed = object["addressed"].toBool();
    step.reply = object["reply"].toString(
        QString::fromLatin1(step.code.size() == 2 ? step.code + "00" : step.code));
    if (object.contains("text")) {
        step.expect = Step::Text;
        step.reply = object["text"].toString();
    } else if (object.contains("battery")) {
        step.expect = Step::Battery;
        step.minimumMv = object["battery"].toArray().at(0).toInt();
        step.maximumMv = object["battery"].toArray().at(1).toInt();
    } else if (object["silence"].toBool()) {
        step.expect = Step::Silence;
    }
    step.timeoutMs = object["timeout"].toInt(step.timeoutMs);
    step.repeats = object["repeats"].toInt(step.repeats);
    step.waitMs = object["wait"].toInt();
    step.before = actions(object["before"], line);
    step.during = actions(object["during"], line);
    step.after = actions(object["after"], line);
    return step;
}

void Reader::check(const Step &step)
{
    const Command *command = findCommand(step.code);
    if (!command) {
        problem(step.line,
                QString("\"%1\": no panel knows the code \"%2\"")
                    .arg(step.name, QString::fromLatin1(step.code)));
    } else if (!allowedAt(*command, plan.level) && step.expect != Step::Silence) {
        problem(step.line,
                QString("\"%1\": the code %2 is not allowed at level %3")
                    .arg(step.name, step.code, levelName(plan.level)));
    }
    for (int item : step.items) {
        if (item < 1 || item > plan.items.size()) {
            problem(step.line,
                    QString("\"%1\": level %2 has no item %3")
                        .arg(step.name, levelName(plan.level))
                        .arg(item));
        }
    }
    if (step.expect == Step::Text
        && !QRegularExpression(expand(step.reply, values, true)).isValid()) {
        problem(step.line,
                QString("\"%1\": not a regular expression: %2").arg(step.name, step.reply));
    }
    checkValues(step.line, step.reply);
    checkValues(step.line, step.argument);
}

void Reader::covered()
{
    for (int item = 1; item <= plan.items.size() && !plan.partial; ++item) {
        bool found = false;
        for (const Step &step : plan.steps) {
            found = found || step.items.contains(item);
        }
        if (!found) {
            problem(1, QString("no step covers item \"%1\"").arg(plan.items[item - 1]));
        }
    }
}

// The line of every object that lies two brackets deep: the steps, in order.
static QVector<int> stepLines(const QByteArray &text)
{
    QVector<int> lines;
    int depth = 0, line = 1;
    bool inString = false;
    for (int at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\n') {
            ++line;
        } else if (inString && c == '\\') {
            ++at;
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString && (c == '{' || c == '[')) {
            if (c == '{' && depth == 2) {
                lines << line;
            }
            ++depth;
        } else if (!inString && (c == '}' || c == ']')) {
            --depth;
        }
    }
    return lines;
}

Plan loadPlan(const QString &path, const Values &values)
{
    Reader reader{{}, values};
    Plan &plan = reader.plan;
    plan.file = QFileInfo(path).fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        reader.problem(1, QString("cannot be read (%1); --plans names the folder").arg(path));
        return plan;
    }
    const QByteArray text = file.readAll();
    QJsonParseError error;
    const QJsonObject root = QJsonDocument::fromJson(text, &error).object();
    if (error.error != QJsonParseError::NoError) {
        reader.problem(text.left(error.offset).count('\n') + 1, error.errorString());
        return plan;
    }
    plan.level = levelByName(root["level"].toString());
    if (plan.level < 0) {
        reader.problem(1, "\"level\" must be ICT, T1, BI or T2");
    }
    plan.partial = root["partial"].toBool();
    plan.items = levelItems(plan.level);
    const QVector<int> lines = stepLines(text);
    const QJsonArray steps = root["steps"].toArray();
    for (int i = 0; i < steps.size(); ++i) {
        plan.steps << reader.step(steps[i].toObject(), lines.value(i, 1));
        reader.check(plan.steps.last());
    }
    reader.covered();
    return plan;
}
