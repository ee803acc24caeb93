#include "fixture/finger.h"
#include "station/protocol.h"
#include "station/report.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTimeZone>

bool Report::passed() const
{
    return !levels.isEmpty() && faults().isEmpty();
}

QStringList Report::faults() const
{
    QStringList list;
    for (const LevelResult &level : levels) {
        for (const StepResult &result : level.steps) {
            for (const QString &fault : result.faults) {
                list << QString("%1, %2: %3").arg(level.level, result.step.name, fault);
            }
        }
        for (const QString &fault : level.faults) {
            list << QString("%1: %2").arg(level.level, fault);
        }
    }
    return list;
}

Values Report::unit() const
{
    static const QHash<QByteArray, QString> askedBy = {
        {"AB00", "model"},       {"AA00", "crc"},       {"FF00", "version"},
        {"FF01", "toolVersion"}, {"0701", "machineId"}, {"0702", "semiId"}};
    Values answered;
    for (const LevelResult &level : levels) {
        for (const StepResult &result : level.steps) {
            const bool text = result.reply.kind == Reply::Text;
            if (text || result.reply.kind == Reply::Identity) {
                answered[askedBy.value(result.step.code)] =
                    textOf(result.reply.payload.mid(text ? 0 : 4)).remove("ToolVer=").trimmed();
            }
        }
    }
    Values unit;
    for (const QString &name : askedBy) {
        const Values &first = name.endsWith("Id") ? given : answered;
        const QString value = first.value(name, (&first == &given ? answered : given).value(name));
        if (!value.isEmpty()) {
            unit[name] = value;
        }
    }
    return unit;
}

// What was measured, with its limits where there are some. `tolerance`: of a touch, in pixels.
static QJsonArray measured(const StepResult &result, int tolerance)
{
    static const QRegularExpression position("^\\( *(\\d+), *(\\d+)\\)");
    if (result.reply.kind == Reply::Battery) {
        QJsonObject value{
            {"name", "battery"}, {"unit", "mV"}, {"value", result.reply.payload.toInt() * 10}};
        if (result.step.expect == Step::Battery) {
            value["min"] = result.step.minimumMv;
            value["max"] = result.step.maximumMv;
        }
        return {value};
    }
    const QRegularExpressionMatch match = position.match(textOf(result.reply.payload));
    if (result.reply.kind != Reply::Text || !match.hasMatch()) {
        return {};
    }
    const Command *command = findCommand(result.step.code);
    const QString name = command ? command->meaning : result.step.name;
    const QPoint touched(match.captured(1).toInt(), match.captured(2).toInt());
    // A touch of the check is judged by how far it is from its target, the others by nobody.
    const bool judged = result.step.code.startsWith("902");
    const QPoint target =
        judged ? touchTargets(checkMargin).value(result.step.code.at(3) - '1') : QPoint();
    QJsonArray values;
    for (const auto &[axis, value] :
         {std::pair("x", touched.x() - target.x()), std::pair("y", touched.y() - target.y())}) {
        QJsonObject one{{"name", QString(judged ? "%1, %2 off" : "%1 %2").arg(name, axis)},
                        {"unit", "px"},
                        {"value", value}};
        if (judged) {
            one["min"] = -tolerance;
            one["max"] = tolerance;
        }
        values << one;
    }
    return values;
}

static QJsonObject stepRecord(const StepResult &result, const QStringList &items, int tolerance)
{
    const bool passed = result.faults.isEmpty();
    QJsonArray numbers, names;
    for (int item : result.step.items) {
        numbers << item;
        names << items.value(item - 1);
    }
    return {{"items", numbers},
            {"itemNames", names},
            {"name", result.step.name},
            {"code", QString(result.step.code)},
            {"request", printable(result.request)},
            {"reply", printable(result.answer.bytes)},
            {"meaning", result.meaning},
            {"values", measured(result, tolerance)},
            {"ms", result.answer.ms},
            {"prescribedMs", result.step.waitMs},
            {"tries", result.answer.tries},
            {"passed", passed},
            {"faults", QJsonArray::fromStringList(result.faults)},
            {"earlier", QJsonArray::fromStringList(result.earlier)},
            {"advice", result.advice()}};
}

static QJsonObject levelRecord(const LevelResult &level)
{
    QJsonArray steps, screens;
    for (const StepResult &result : level.steps) {
        steps << stepRecord(result, level.items, level.level == "T2" ? 11 : 10);
    }
    for (const QString &name : level.screens.keys()) {
        screens << QString("%1-%2.png").arg(level.level.toLower(), name);
    }
    return {{"level", level.level},
            {"plan", level.plan},
            {"planHash", QString(level.planHash)},
            {"items", QJsonArray::fromStringList(level.items)},
            {"passed", level.passed()},
            {"medianOverheadMs", level.medianOverheadMs()},
            {"faults", QJsonArray::fromStringList(level.faults)},
            {"screens", screens},
            {"log", textOf(level.resumeLog).remove(QChar(0))},
            {"steps", steps}};
}

QJsonObject recordOf(const Report &report)
{
    const auto moment = [](const QDateTime &time) {
        return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate)
                              : QString();
    };
    QJsonArray levels;
    QJsonObject unit;
    for (const LevelResult &level : report.levels) {
        levels << levelRecord(level);
    }
    const Values values = report.unit();
    for (auto value = values.begin(); value != values.end(); ++value) {
        unit[value.key()] = value.value();
    }
    const QString verdict = !report.ended.isValid() ? "not ended"
        : report.passed()                           ? "passed"
                                                    : "failed";
    return {{"format", 1},
            {"unit", unit},
            {"subject", report.subject},
            {"operator", report.operatorName},
            {"line", report.line},
            {"host", QSysInfo::machineHostName()},
            {"bench", QCoreApplication::applicationVersion()},
            {"begun", moment(report.begun)},
            {"ended", moment(report.ended)},
            {"zone", QString(QTimeZone::systemTimeZoneId())},
            {"verdict", verdict},
            {"passed", verdict == "passed"},
            {"faults", QJsonArray::fromStringList(report.faults())},
            {"levels", levels}};
}
