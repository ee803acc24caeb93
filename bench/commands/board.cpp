#include "commands/boardrig.h"
#include "commands/commands.h"
#include "commands/interrupt.h"

#include <QCommandLineParser>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <random>

// What only drivers can show, on the whole ARM machine: a look at each.
namespace {

QString differs(const QString &what, const QString &is, const QString &wanted)
{
    return is.contains(QRegularExpression(wanted))
        ? QString()
        : QString("%1 is \"%2\" instead of %3").arg(what, is.simplified().left(160), wanted);
}

// The settings that a port had at any moment while a request ran.
QString settingsDuring(BoardRig &rig, const char *port, const char *code)
{
    rig.run(QString("(for i in $(seq 60); do stty -a -F /dev/%1; usleep 15000; done "
                    ">/tmp/lines 2>/dev/null) &")
                .arg(port));
    rig.ask(code);
    return rig.run("cat /tmp/lines; rm /tmp/lines");
}

QString lineSettings(BoardRig &rig)
{
    QString fault = differs("ttyO1", rig.run("stty -a -F /dev/ttyO1 2>/dev/null"),
                            "(?s)^speed 9600.*\\bparenb -parodd.*cs8.* -cstopb.* crtscts.*inpck");
    const QString during = settingsDuring(rig, "ttyO4", "8107");
    fault += differs("ttyO4 in the RS-422 test", during,
                     "(?s)speed 19200 baud;[^;]*;[^s]*.*?-parenb.*?cs8");
    return fault + differs("ttyO4 as RS-485", during, "(?s)speed 9600.*?parenb -parodd.*?cs7");
}

// Nothing leaves while the peer's CTS is off. The emulator raises the line again at a reset only.
QString peerHoldsCts(BoardRig &rig)
{
    rig.panel.board()->holdCts(false);
    const QByteArray before = rig.run("grep -o tx:[0-9]* /proc/tty/driver/serial | head -n 1");
    const QByteArray answer = rig.ask("8000", {}, 3000);
    const QByteArray driver = rig.run("grep ^0: /proc/tty/driver/serial");
    rig.panel.board()->holdCts(true);
    rig.panel.powerOff();
    rig.powerOn();
    return (answer.isEmpty() ? QString() : "answered although CTS is off; ")
        + differs("the driver", driver, "^(?!.*CTS).*" + before.trimmed() + " ")
        + differs("the answer once CTS is on", rig.ask("8000"), "^8000$");
}

// A break comes as one zero byte, no request; what comes after a pause is answered.
QString breakOnTheLine(BoardRig &rig)
{
    rig.panel.board()->monitor("chardev-send-break", {{"id", "link"}});
    const QString driver = rig.run("sleep 2; grep ^0: /proc/tty/driver/serial");
    return differs("the driver", driver, "brk:1")
        + differs("the answer", rig.ask("8000"), "^8000$");
}

// The panel answers before it paints.
QString frameBuffer(BoardRig &rig)
{
    rig.ask("9510", "0080FF");
    QString fault;
    const auto painted = [&] {
        const QString pixels = rig.run("for y in 0 239 479; do dd if=/dev/fb0 bs=4 count=1 "
                                       "skip=$((y * 800 + 799)) 2>/dev/null; done | od -A n -t x4");
        fault = differs("a pixel", pixels, "^\\s*(..0080ff\\s*){3}$");
        return fault.isEmpty();
    };
    waitFor(painted, 20000);
    return fault;
}

// What comes through it is looked at in production.
QString touch(BoardRig &rig)
{
    const QString seen = rig.run("ls -l /proc/$(pidof ict-agent)/fd | grep -c /dev/input/event0");
    return differs("readers of the touch device", seen, "^1\\s*$");
}

QString sound(BoardRig &rig)
{
    rig.panel.events().clear();
    const QByteArray answer = rig.ask("9201");
    QString heard;
    for (const InputEvent &event : rig.panel.events().all()) {
        heard += QString("%1,%2,%3 ").arg(event.type).arg(event.code).arg(event.value);
    }
    return differs("the answer", answer, "^9201$")
        + differs("what the driver got", heard, "^18,3,99 18,2,1000 18,2,0 $");
}

QString clocks(BoardRig &rig)
{
    const QByteArray before = rig.run("cat /sys/class/rtc/rtc0/since_epoch");
    rig.run("usleep 1500000");
    const QByteArray after = rig.run("cat /sys/class/rtc/rtc0/since_epoch; date -u +%s");
    const qint64 rtc = after.split('\n')[0].toLongLong(),
                 system = after.split('\n')[1].toLongLong();
    QString fault = differs("the date", rig.run("date -u +%Y"), "^2015");
    if (rtc <= before.toLongLong() || qAbs(rtc - system) > 2) {
        fault += "the RTC stands or is not the system's time: " + before + after;
    }
    return fault + differs("the clock test", rig.ask("8C00"), "^8C00$");
}

QString nand(BoardRig &rig)
{
    QProcess cksum;
    cksum.setStandardInputFile(rig.panel.hostPath("/dev/mtd0"));
    cksum.start("cksum", QStringList());
    cksum.waitForFinished();
    const quint32 sum = cksum.readAll().split(' ').value(0).toUInt();
    return differs("the sum of /dev/mtd0", rig.ask("AA00"),
                   QString("^%1").arg(sum, 8, 16, QLatin1Char('0')).toUpper())
        + differs("its driver", rig.run("cat /proc/mtd"), "mtd0: 00020000 .*NAND");
}

// Exported logs lie on the medium; without it the export fails, and with it again it does not.
QString medium(BoardRig &rig, const char *name, const char *code, const char *refusal,
               const char *folder, const char *device)
{
    const QByteArray with = rig.ask(code);
    const QString files =
        rig.run(QString("ls %1; grep ' %1 ' /proc/mounts").arg(QLatin1String(folder)));
    rig.fixture.act("unplug", name);
    const auto mounted = [&](bool wanted) {
        return waitFor(
            [&] { return rig.run(QString("[ -d %1 ] && echo 1").arg(folder)).isEmpty() != wanted; },
            20000);
    };
    const bool gone = mounted(false);
    const QByteArray without = rig.ask(code);
    rig.fixture.act("plug", name);
    const bool back = mounted(true);
    return differs("the answer", with, QString("^%1$").arg(code))
        + differs("the medium", files, QString("FactoryTestLog.txt(.|\n)*%1").arg(device))
        + (gone ? "" : "still mounted when unplugged; ")
        + differs("the answer without it", without, QString("^%1$").arg(refusal))
        + (back ? "" : "not mounted when plugged in again; ")
        + differs("the answer then", rig.ask(code), QString("^%1$").arg(code));
}

QString stick(BoardRig &rig)
{
    return medium(rig, "usb", "CC10", "CCE0", "/media/sda1", "/dev/sd[a-z]1");
}

QString card(BoardRig &rig)
{
    return medium(rig, "sd", "CC11", "CCE1", "/media/mmcblk0p1", "/dev/mmcblk0p1");
}

QString boardCheck(BoardRig &rig)
{
    const QString whole = rig.run("check-panel.sh; echo status $?");
    rig.panel.setPresent("/dev/ttyO4", false);
    rig.run("mv /etc/default/ict-panel /tmp; mv /dev/mtd0 /dev/mtd0.away");
    const QString lacking = rig.run("check-panel.sh; echo status $?");
    rig.run("mv /tmp/ict-panel /etc/default; mv /dev/mtd0.away /dev/mtd0");
    rig.panel.setPresent("/dev/ttyO4", true);
    return differs("its table", whole, "^(?!(.|\n)*MISSING)(.|\n)*status 0")
        + differs("its table without ttyO4 and mtd0", lacking,
                  "MISSING /dev/ttyO4(.|\n)*MISSING /dev/mtd0(.|\n)*2 missing(.|\n)*status 1")
        + differs("its table without settings", lacking, "absent  QT_FONT_DPI");
}

struct Check {
    const char *name;
    QString (*find)(BoardRig &rig); // what is wrong, empty for nothing
};
const Check checks[] = {
    {"line settings", lineSettings},
    {"a break on the line", breakOnTheLine},
    {"frame buffer", frameBuffer},
    {"touch device", touch},
    {"sound events", sound},
    {"clocks", clocks},
    {"NAND", nand},
    {"USB stick, hot-plugged", stick},
    {"SD card", card},
    {"check-panel.sh", boardCheck},
    {"CTS held by the peer", peerHoldsCts}, // restarts the machine
};

// Not judged: the emulator is as fast as the machine that it runs on.
void sayFigures(BoardRig &rig)
{
    const QString size = "grep VmRSS /proc/%1/status | tr -dc 0-9",
                  used =
                      "cat /proc/$(pidof ict-agent)/task/*/schedstat | awk '{n+=$1} END {print n}'";
    QVector<qint64> times;
    for (int i = 0; i < 200 && !interrupted(); ++i) {
        QElapsedTimer clock;
        clock.start();
        rig.ask("8000");
        times << clock.elapsed();
    }
    std::sort(times.begin(), times.end());
    const double before = rig.run(used).toDouble();
    rig.run("sleep 30");
    const double idle = (rig.run(used).toDouble() - before) / 30e9;
    const QByteArray agent = rig.run(size.arg("$(pidof ict-agent)"));
    const QByteArray window = rig.run("set -a; . /etc/default/ict-panel; /board/window -platform "
                                      "linuxfb >/dev/null 2>&1 & sleep 20; "
                                      + size.arg("$!") + "; kill $!");
    say(QString("     resident: agent %1 KiB, empty window %2 KiB; idle %3 % of the processor; "
                "\"8000\" %4 ms in the median, %5 ms at the latest of %6")
            .arg(QString(agent), QString(window))
            .arg(100 * idle, 0, 'f', 2)
            .arg(times.value(times.size() / 2))
            .arg(times.isEmpty() ? 0 : times.last())
            .arg(times.size()));
}

int runChecks()
{
    BoardRig rig;
    std::mt19937 random(1);
    QByteArray flash(131072, '\0');
    std::generate(flash.begin(), flash.end(), [&] { return char(random()); });
    rig.panel.writeFile("/dev/mtd0", flash);
    rig.powerOn();
    int wrong = 0;
    for (const Check &check : checks) {
        const QString fault = check.find(rig);
        wrong += !fault.isEmpty();
        say(QString(" %1 %2").arg(fault.isEmpty() ? "ok  " : "FAIL").arg(check.name)
                + (fault.isEmpty() ? "" : ": " + fault),
            !fault.isEmpty());
    }
    sayFigures(rig); // last, for the window paints over the panel
    return wrong ? 1 : 0;
}

} // namespace

int runBoard(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Looks at what only drivers can show on the whole ARM machine of tools/board.sh.\n"
        "Exit status 0 if all of it is as it must be.");
    parser.addHelpOption();
    parser.addOptions(
        {{"cuts", "Instead cut the power so many times at random moments of production.", "count"},
         {"seed", "Of the moments (default 1).", "number", "1"}});
    parser.process(args);
    quitOnInterrupt();
    return parser.isSet("cuts")
        ? cutBoardPower(parser.value("cuts").toInt(), parser.value("seed").toUInt())
        : runChecks();
}
