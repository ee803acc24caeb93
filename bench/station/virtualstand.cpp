#include "station/virtualstand.h"

#include "panel/urgency.h"
#include "station/console.h"
#include "station/protocol.h"

#include <QProcess>

static constexpr int emulatedBootMs = 600000; // on a busy machine
static constexpr int bootMs = 30000, screenMs = 5000, filesMs = 5000;

Port linkPort(int level)
{
    return level == Bi ? Port::ttyO3 : Port::ttyO1;
}

VirtualStand::VirtualStand(VirtualPanel &panel, Fixture *fixture)
    : files(panel.hostPath(""))
    , panel_(panel)
    , fixture_(fixture)
    , finger_(panel)
{
}

QString VirtualStand::port(int level) const
{
    return panel_.linkPath(linkPort(level));
}

QString VirtualStand::powerOn()
{
    const Port link = linkPort(files.level());
    panel_.powerOn();
    const int ms = panel_.board() ? emulatedBootMs : bootMs;
    if (!waitFor([&] { return panel_.isReady(link) || !panel_.isOn(); }, ms))
        return QString("the panel does not open its PC link within %1 s").arg(ms / 1000);
    return panel_.isOn() ? QString() : "the agent ended: " + panel_.errorOutput().right(400);
}

QString VirtualStand::powerCycle(const QString &)
{
    panel_.powerOff();
    return powerOn();
}

QString VirtualStand::compare(const QString &state)
{
    return stateFolder.isEmpty()
        ? QString()
        : files.differences(QString("%1/%2.txt").arg(stateFolder, state), filesMs).join("; ");
}

QString VirtualStand::act(const QString &action)
{
    using Verb = QString (VirtualStand::*)(const QString &argument);
    static const QHash<QString, Verb> verbs = {{"powercycle", &VirtualStand::powerCycle},
                                               {"screenshot", &VirtualStand::keepScreen},
                                               {"files", &VirtualStand::compare},
                                               {"settle", &VirtualStand::settle},
                                               {"look", &VirtualStand::look},
                                               {"touch", &VirtualStand::touch},
                                               {"ask", &VirtualStand::agree}};
    const QString verb = action.section(' ', 0, 0), argument = action.section(' ', 1);
    if (verbs.contains(verb))
        return (this->*verbs[verb])(argument);
    return fixture_ ? fixture_->act(verb, argument) : "this panel runs without its fixture";
}

QString VirtualStand::settle(const QString &)
{
    QElapsedTimer clock;
    clock.start();
    const auto closed = [&] {
        return files.read("/usr/local/ict/HMI_Factory_Resume.txt")
            .trimmed()
            .endsWith("== Test End =====================");
    };
    const bool over = waitFor(closed, panel_.board() ? emulatedBootMs : bootMs);
    say(QString("     power kept on for %1 ms: the panel archives its logs and clears its SRAM")
            .arg(clock.elapsed()));
    return over ? QString() : "the panel's log does not end in \"Test End\"";
}

// Whether all but one of a thousand sampled pixels inside `part` have a colour.
static bool isFilled(const QImage &image, const QRect &part, const QColor &colour)
{
    int all = 0, same = 0;
    for (int y = part.top(); y <= part.bottom(); y += 4) {
        for (int x = part.left(); x <= part.right(); x += 4, ++all)
            same += image.pixelColor(x, y).rgb() == colour.rgb();
    }
    return same > 0.999 * all;
}

static QColor colourOf(const QString &name)
{
    if (name == "green")
        return Qt::green; // the toolkit's name means a darker one
    return QColor::isValidColor(name) ? QColor(name) : QColor('#' + name);
}

QString VirtualStand::look(const QString &wanted)
{
    if (wanted == "dark") {
        const bool dark = waitFor([&] { return panel_.backlight() == 0; }, screenMs);
        return dark ? QString() : QString("the backlight is at %1 %").arg(panel_.backlight());
    }
    const bool bands = wanted == "bands";
    const QStringList colours = bands ? QStringList{"red", "green", "blue"} : QStringList{wanted};
    const int margin = bands ? 2 : 0; // where one becomes the next
    const auto seen = [&](const QImage &image) {
        const int width = image.width() / colours.size();
        bool good = panel_.backlight() == 100;
        for (int i = 0; i < colours.size(); ++i) {
            const QRect band(i * width + margin, 0, width - 3 * margin, image.height());
            good = good && isFilled(image, band, colourOf(colours[i]));
        }
        return good;
    };
    bool satisfied = false;
    const QImage image = panel_.screen().waitFor(seen, screenMs, &satisfied);
    screens["look-" + wanted] = image;
    return satisfied ? QString() : "the screen does not look so";
}

// The screen once it has come to rest: the panel paints after it has answered.
QString VirtualStand::keepScreen(const QString &name)
{
    QImage last = panel_.screen().grab();
    const auto still = [&](const QImage &image) {
        const bool same = image == last;
        last = image;
        QThread::msleep(150);
        return same && !image.isNull();
    };
    panel_.screen().waitFor(still, screenMs);
    if (last.isNull())
        return "the panel shows nothing";
    screens[name] = last;
    return {};
}

QString VirtualStand::touch(const QString &how)
{
    if (how == "release") {
        panel_.touchRelease();
        return {};
    }
    if (how.startsWith("press")) {
        panel_.touchPress({how.section(' ', 1, 1).toInt(), how.section(' ', 2, 2).toInt()});
        return {};
    }
    const QString fault = how == "check" ? finger_.check() : finger_.calibrate(how != "calibrate3");
    if (!fault.isEmpty())
        screens["touch"] = panel_.screen().grab();
    return fault;
}

Values identityOf(const VirtualPanel &panel)
{
    Values values;
    for (const QByteArray &line : panel.readFile("/usr/local/HMIAPP/identity").split('\n')) {
        if (line.startsWith("Model="))
            values["model"] = line.mid(6);
        else if (line.startsWith("Version="))
            values["version"] = line.mid(8, 1) + '.' + line.mid(10, 4) + ".120";
    }
    QProcess cksum;
    cksum.setStandardInputFile(panel.hostPath("/dev/mtd0"));
    {
        const Urgently start;
        cksum.start("cksum", QStringList());
    }
    cksum.waitForFinished();
    const quint32 crc = cksum.readAll().split(' ').value(0).toUInt();
    values["crc"] = QString("%1").arg(crc, 8, 16, QLatin1Char('0')).toUpper();
    return values;
}
