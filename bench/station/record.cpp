#include "panel/files.h"
#include "station/codec.h"
#include "station/report.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QSysInfo>
#include <QTimeZone>

static void append(QJsonObject *object, const char *key, const QString &text)
{
    QJsonArray list = (*object)[key].toArray();
    list << text;
    (*object)[key] = list;
}

void Report::begin(const QString &level)
{
    const QJsonArray none;
    levels << QJsonObject{{"level", level}, {"plan", ""},      {"planHash", ""},
                          {"items", none},  {"steps", none},   {"medianOverheadMs", 0},
                          {"faults", none}, {"screens", none}, {"log", ""}};
}

void Report::fault(const QString &text)
{
    append(&levels.last(), "faults", text);
}

void Report::take(const QMap<QString, QImage> &images)
{
    for (auto image = images.begin(); image != images.end(); ++image) {
        const QString file =
            QString("%1-%2.png").arg(levels.last()["level"].toString().toLower(), image.key());
        append(&levels.last(), "screens", file);
        screens[file] = image.value();
    }
}

static QStringList faultsOf(const QJsonObject &level)
{
    const QString name = level["level"].toString();
    QStringList list;
    for (const QJsonValue &step : level["steps"].toArray()) {
        for (const QString &fault : textsOf(step["faults"]))
            list << QString("%1, %2: %3").arg(name, step["name"].toString(), fault);
    }
    for (const QString &fault : textsOf(level["faults"]))
        list << QString("%1: %2").arg(name, fault);
    return list;
}

bool Report::passed() const
{
    return !levels.isEmpty() && faults().isEmpty();
}

QStringList Report::faults() const
{
    QStringList list;
    for (const QJsonObject &level : levels)
        list += faultsOf(level);
    return list;
}

Values Report::unit() const
{
    static const QHash<QString, QString> askedBy = {{"AB00", "model"},     {"AA00", "crc"},
                                                    {"FF00", "version"},   {"FF01", "toolVersion"},
                                                    {"0701", "machineId"}, {"0702", "semiId"}};
    Values answered;
    for (const QJsonObject &level : levels) {
        for (const QJsonValue &step : level["steps"].toArray()) {
            const Reply reply = decode(unprintable(step["reply"].toString().toLatin1()));
            const bool text = reply.kind == Reply::Text;
            if (text || reply.kind == Reply::Identity)
                answered[askedBy.value(step["code"].toString())] =
                    textOf(reply.payload.mid(text ? 0 : 4)).remove("ToolVer=").trimmed();
        }
    }
    Values unit;
    for (const QString &name : askedBy) {
        const bool id = name.endsWith("Id");
        const Values &first = id ? given : answered, &second = id ? answered : given;
        const QString value = first.value(name, second.value(name));
        if (!value.isEmpty())
            unit[name] = value;
    }
    return unit;
}

static QString moment(const QDateTime &time)
{
    return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate)
                          : QString();
}

QJsonObject recordOf(const Report &report)
{
    QJsonArray levels;
    for (QJsonObject level : report.levels) {
        level["passed"] = faultsOf(level).isEmpty();
        levels << level;
    }
    QVariantHash unit;
    const Values values = report.unit();
    for (auto value = values.begin(); value != values.end(); ++value)
        unit[value.key()] = value.value();
    QString verdict = "not ended";
    if (report.ended.isValid())
        verdict = report.passed() ? "passed" : "failed";
    return {{"format", 1},
            {"unit", QJsonObject::fromVariantHash(unit)},
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
