#include "commands/livepanel.h"

#include "panel/files.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

static void insist(const QString &wrong)
{
    if (!wrong.isEmpty())
        throw BenchError(wrong);
}

// What is wrong with the text of an action, empty if nothing.
static QString actionFault(const QString &action)
{
    const QJsonObject file = readJson(sharedFile("bench/plans/actions.json"));
    QStringList forms;
    for (const QJsonValue &row : file["actions"].toArray()) {
        forms << row["action"].toString();
        const QString form = QRegularExpression::anchoredPattern(forms.last());
        if (QRegularExpression(form).match(action).hasMatch())
            return {};
    }
    return QString("unknown action \"%1\"; known are: %2").arg(action, forms.join(", "));
}

LivePanel::LivePanel(VirtualPanel &panel, Fixture *fixture, Traffic *traffic,
                     const QStringList &agentArgs)
    : panel_(panel)
    , fixture_(fixture)
    , traffic_(traffic)
    , agentArgs_(agentArgs)
    , stand_(panel, fixture)
{
}

QString LivePanel::obey(const QString &verb, const QString &argument)
{
    if (verb == "fault" && argument == "show" && fixture_) {
        const QStringList faults = fixture_->faults();
        return faults.isEmpty() ? "no fault is set" : faults.join(' ');
    }
    if (traffic_ && verb != "power")
        traffic_->note(verb + ' ' + argument);
    if (verb == "power")
        power(argument);
    else if (verb != "fault" && !panel_.isOn())
        throw BenchError("the panel is off: `bench power on` first");
    else if (verb == "screenshot")
        screenshot(argument);
    else
        return act(verb, argument);
    return {};
}

void LivePanel::power(const QString &order)
{
    if (!QStringList({"on", "off", "cycle"}).contains(order))
        throw BenchError(QString("\"%1\" is none of on, off, cycle").arg(order));
    if (order != "on") {
        switchedOff_ = true;
        panel_.powerOff();
    }
    if (order != "off") {
        panel_.powerOn(agentArgs_);
        switchedOff_ = false;
        insist(agentArgs_.isEmpty() ? stand_.powerOn() : QString());
    }
}

void LivePanel::screenshot(const QString &file)
{
    insist(stand_.act("screenshot screen"));
    const char *const format = QFileInfo(file).suffix().isEmpty() ? "PNG" : nullptr;
    if (!stand_.screens["screen"].save(file, format))
        throw BenchError(QString("%1 cannot be written: is it a picture's name (.png) in a folder "
                                 "of yours?")
                             .arg(file));
}

QString LivePanel::act(const QString &verb, const QString &argument)
{
    static const QRegularExpression spot("^(\\d{1,3}) (\\d{1,3})$");
    const QRegularExpressionMatch match = spot.match(argument);
    if (verb == "touch" && match.hasMatch()) {
        const QPoint pixel(match.captured(1).toInt(), match.captured(2).toInt());
        if (pixel.x() >= 800 || pixel.y() >= 480)
            throw BenchError("the screen has 800 x 480 pixels");
        Finger(panel_).touch(pixel);
        return {};
    }
    const QString action = verb + ' ' + argument;
    if (verb == "fault") {
        insist(stand_.act(action));
        return {};
    }
    insist(actionFault(action));
    return stand_.act(action);
}
