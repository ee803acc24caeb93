#include "station/plan.h"

#include "panel/bencherror.h"
#include "panel/folders.h"
#include "panel/json.h"
#include "station/codec.h"
#include "station/protocol.h"
#include "station/stand.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QJsonArray>
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

QStringList levelItems(int level, const QString &folder)
{
    const QString own = folder + "/items.json";
    const QJsonObject items = readJson(QFile::exists(own) ? own : planFolder() + "/items.json");
    return QVariant(items[levelName(level)].toArray().toVariantList()).toStringList();
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
    if (!step.raw.isEmpty()) {
        return step.raw;
    }
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

// What a key's value must be; texts and numbers may stand where a list of them may.
enum Form { Text = 1, Number = 2, Flag = 4, Texts = 8, Numbers = 16 };

const QMap<QString, int> stepKeys = {
    {"item", Number | Numbers},  {"name", Text},      {"code", Text},       {"raw", Text},
    {"argument", Text | Number}, {"addressed", Flag}, {"reply", Text},      {"text", Text},
    {"expected", Text},          {"bytes", Text},     {"battery", Numbers}, {"silence", Flag},
    {"timeout", Number},         {"repeats", Number}, {"wait", Number},     {"before", Texts},
    {"during", Texts},           {"after", Texts}};

int formOf(const QJsonValue &value)
{
    int form = 0;
    switch (value.type()) {
    case QJsonValue::String:
        return Text;
    case QJsonValue::Bool:
        return Flag;
    case QJsonValue::Double:
        return value.toDouble() >= 0 && value.toInt(-1) >= 0 ? Number : 0;
    case QJsonValue::Array:
        form = Texts | Numbers;
        for (const QJsonValue &one : value.toArray()) {
            form &= formOf(one) == Text ? Texts : formOf(one) == Number ? Numbers : 0;
        }
        return form;
    default:
        return 0;
    }
}

QString formText(int form)
{
    static const char *const names[] = {"a text", "a whole number from 0 on", "true or false",
                                        "a list of texts", "a list of whole numbers from 0 on"};
    QStringList texts;
    for (int bit = 0; bit < 5; ++bit) {
        if (form & (1 << bit)) {
            texts << names[bit];
        }
    }
    return texts.join(" or ");
}

// One plan file being read: collects what is wrong with it.
class Reader {
public:
    Reader(const QString &path, const Values &values)
        : values_(values)
        , place_(QFileInfo(path).fileName())
    {
        plan.file = place_;
    }
    void read(const QJsonObject &root);
    void problem(const QString &what)
    {
        plan.problems << place_ + ": " + what;
    }

    Plan plan;

private:
    void checkKeys(const QJsonObject &object);
    Step step(const QJsonObject &object);
    void expectation(const QJsonObject &object, Step *step);
    QStringList actions(const QJsonValue &value);
    void check(const Step &step);
    void checkValues(const QString &text);
    void checkCovered();

    const Values &values_;
    QString place_;
};

void Reader::checkKeys(const QJsonObject &object)
{
    for (const QString &key : object.keys()) {
        if (!stepKeys.contains(key)) {
            const QStringList known = stepKeys.keys();
            problem(QString("unknown key \"%1\"; known are %2").arg(key, known.join(", ")));
        } else if (!(stepKeys[key] & formOf(object[key]))) {
            problem(QString("\"%1\" must be %2").arg(key, formText(stepKeys[key])));
        }
    }
}

void Reader::checkValues(const QString &text)
{
    auto matches = placeholder().globalMatch(text);
    while (matches.hasNext()) {
        const QString name = matches.next().captured(1);
        plan.uses << name;
        if (!values_.contains(name)) {
            problem(QString("nobody says what ${%1} is (--set %1=...)").arg(name));
        }
    }
}

QStringList Reader::actions(const QJsonValue &value)
{
    QStringList list;
    for (const QJsonValue &action : value.toArray()) {
        list << action.toString();
        const QString fault = actionFault(action.toString());
        if (!fault.isEmpty()) {
            problem(fault);
        }
    }
    return list;
}

void Reader::expectation(const QJsonObject &object, Step *step)
{
    const Command *command = findCommand(step->code);
    step->reply = object["reply"].toString(command ? textOf(command->pass()) : QString());
    if (object.contains("text")) {
        step->expect = Step::Text;
        step->reply = object["text"].toString();
        step->expected = object["expected"].toString();
    } else if (object.contains("bytes")) {
        step->expect = Step::Bytes;
        step->reply = object["bytes"].toString();
    } else if (object.contains("battery")) {
        const QJsonArray range = object["battery"].toArray();
        step->expect = Step::Battery;
        step->minimumMv = range.at(0).toInt();
        step->maximumMv = range.at(1).toInt();
        if (range.size() != 2 || step->minimumMv > step->maximumMv) {
            problem("\"battery\" must be two numbers, the smaller first");
        }
    } else if (object["silence"].toBool()) {
        step->expect = Step::Silence;
    }
}

Step Reader::step(const QJsonObject &object)
{
    checkKeys(object);
    Step step;
    const QJsonValue item = object["item"];
    for (const QJsonValue &number : item.isArray() ? item.toArray() : QJsonArray{item}) {
        if (number.isDouble()) {
            step.items << number.toInt();
        }
    }
    step.name = object["name"].toString();
    step.code = object["code"].toString().toLatin1();
    step.raw = object["raw"].toString().toLatin1();
    if (const Command *command = step.raw.isEmpty() ? nullptr : commandOf(step.raw)) {
        step.code = command->code;
    }
    step.argument = object["argument"].toVariant().toString();
    step.addressed = object["addressed"].toBool();
    expectation(object, &step);
    step.timeoutMs = object["timeout"].toInt(step.timeoutMs);
    step.repeats = object["repeats"].toInt(step.repeats);
    step.waitMs = step.expect == Step::Silence ? step.timeoutMs : object["wait"].toInt();
    step.before = actions(object["before"]);
    step.during = actions(object["during"]);
    step.after = actions(object["after"]);
    return step;
}

void Reader::check(const Step &step)
{
    const Command *command = findCommand(step.code);
    if (step.raw.isEmpty() && !command) {
        problem(QString("no panel knows the code \"%1\"").arg(textOf(step.code)));
    } else if (step.raw.isEmpty() && !command->allowedAt(plan.level)
               && step.expect != Step::Silence) {
        problem(QString("the code %1 is not allowed at level %2")
                    .arg(textOf(step.code), levelName(plan.level)));
    }
    for (int item : step.items) {
        if (item < 1 || item > plan.items.size()) {
            problem(QString("level %1 has no item %2").arg(levelName(plan.level)).arg(item));
        }
    }
    if (step.expect == Step::Text
        && !QRegularExpression(expand(step.reply, values_, true)).isValid()) {
        problem("not a regular expression: " + step.reply);
    }
    checkValues(step.reply);
    checkValues(step.argument);
    if (step.code == "KLV-" && step.raw.isEmpty()) {
        checkValues("${model}");
    }
}

void Reader::checkCovered()
{
    QSet<int> covered;
    for (const Step &step : plan.steps) {
        covered.unite({step.items.begin(), step.items.end()});
    }
    for (int item = 1; item <= plan.items.size() && !plan.partial; ++item) {
        if (!covered.contains(item)) {
            problem(QString("no step covers item \"%1\"").arg(plan.items[item - 1]));
        }
    }
}

void Reader::read(const QJsonObject &root)
{
    const QString file = place_;
    plan.partial = root["partial"].toBool();
    int number = 0;
    for (const QJsonValue &row : root["steps"].toArray()) {
        const QString name = row["name"].toString();
        place_ = QString("%1, step %2%3")
                     .arg(file)
                     .arg(++number)
                     .arg(name.isEmpty() ? name : " \"" + name + '"');
        plan.steps << step(row.toObject());
        check(plan.steps.last());
    }
    place_ = file;
    if (plan.steps.isEmpty()) {
        problem("\"steps\" holds none");
    }
    checkCovered();
}

} // namespace

static QByteArray hashOf(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result().toHex()
                                                                 : QByteArray();
}

Plan loadPlan(const QString &path, const Values &values)
{
    Reader reader(path, values);
    try {
        const QJsonObject root = readJson(path);
        reader.plan.hash = hashOf(path);
        reader.plan.level = levelByName(root["level"].toString());
        if (reader.plan.level < 0) {
            reader.problem("\"level\" must be ICT, T1, BI or T2");
            return reader.plan;
        }
        reader.plan.items = levelItems(reader.plan.level, QFileInfo(path).path());
        reader.read(root);
    } catch (const BenchError &error) {
        reader.plan.problems << error.what();
    }
    return reader.plan;
}
