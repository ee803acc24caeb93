#include "commands/boardrig.h"
#include "commands/commandline.h"
#include "commands/commands.h"
#include "fixture/pfvpstand.h"
#include "fixture/virtualstand.h"
#include "panel/gauges.h"
#include "panel/interrupt.h"

#include <QRegularExpression>

#include <algorithm>
#include <climits>
#include <random>

// What only drivers can show, on the whole ARM machine: a look at each.
namespace {

constexpr int cycleMs = 900000; // two of the EMS mode's on a busy machine
constexpr int settledMs = 300000;

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

// At BI the PC link is RS-485.
QString burnInLine(BoardRig &rig)
{
    rig.panel.powerOff();
    rig.panel.setLevel("BI");
    rig.powerOn();
    return differs("ttyO3", rig.run("stty -a -F /dev/ttyO3 2>/dev/null"),
                   "(?s)^speed 9600.*\\bparenb -parodd.*cs7.* -cstopb.* -crtscts.*inpck")
        + differs("the answer", rig.ask("8500"), "^8500$");
}

// A request to a USB port may just miss the peer, which looks at its ports in turn.
QString twoBoards(BoardRig &rig)
{
    rig.panel.powerOff();
    const PfvpMode &mode = pfvpMode(PfvpTable::Ems);
    PfvpStand stand;
    stand.start(PfvpTable::Ems);
    Board *board = stand.panel.board();
    QString fault =
        differs("the driver of ttyUSB0",
                board->run("readlink /sys/class/tty/ttyUSB0/device/driver"), "/ftdi_sio$");
    fault += differs("the driver of ttyGS0",
                     board->run("grep ^g_serial /proc/tty/drivers; ls /dev/ttyGS0"),
                     "(?s)g_serial .*\n/dev/ttyGS0");
    stand.operatorOfPanel.press(mode.startText, cycleMs);
    const PfvpCounts counts =
        stand.operatorOfPanel.countsAfter(PfvpTable::Ems, 2 * mode.needs.size(), cycleMs);
    for (int i = 0; i < mode.needs.size(); ++i) {
        const int passes = counts.value(i, {0, 0}).pass, least = mode.needs[i][0] == 'u' ? 1 : 2;
        if (passes < least)
            fault += QString("%1 passed in %2 of 2 cycles; ").arg(mode.needs[i]).arg(passes);
    }
    return fault;
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
    waitFor(painted, settledMs);
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
    for (const InputEvent &event : rig.panel.events().all())
        heard += QString("%1,%2,%3 ").arg(event.type).arg(event.code).arg(event.value);
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
    if (rtc <= before.toLongLong() || qAbs(rtc - system) > 2)
        fault += "the RTC stands or is not the system's time: " + before + after;
    return fault + differs("the clock test", rig.ask("8C00"), "^8C00$");
}

QString nand(BoardRig &rig)
{
    return differs("the sum of /dev/mtd0", rig.ask("AA00"), '^' + identityOf(rig.panel)["crc"])
        + differs("its driver", rig.run("cat /proc/mtd"), "mtd0: 00020000 .*NAND");
}

// Exported logs lie on the medium; without it the export fails, and with it again it does not.
QString medium(BoardRig &rig, const char *name, const char *code, const char *refusal,
               const char *folder, const char *device)
{
    const QString pass = QString("^%1$").arg(code), place = QString(folder);
    const auto becomes = [&](const char *act, const char *status) {
        rig.fixture.act(act, name);
        const QString look = QString("[ -d %1 ]; echo $?").arg(place);
        return waitFor([&] { return rig.run(look).trimmed() == status; }, settledMs);
    };
    QString fault = differs("the answer", rig.ask(code), pass);
    fault += differs("the medium", rig.run("ls " + place + "; grep " + place + " /proc/mounts"),
                     QString("FactoryTestLog.txt(.|\n)*%1").arg(device));
    fault += becomes("unplug", "1") ? "" : "still mounted when unplugged; ";
    fault += differs("the answer without it", rig.ask(code), QString("^%1$").arg(refusal));
    fault += becomes("plug", "0") ? "" : "not mounted when plugged in again; ";
    return fault + differs("the answer then", rig.ask(code), pass);
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
    // From here on each restarts the machine.
    {"CTS held by the peer", peerHoldsCts},
    {"the link at BI", burnInLine},
    {"two boards cabled together, EMS", twoBoards},
};

// Not judged: the emulator is as fast as the machine that it runs on.
void sayFigures(BoardRig &rig)
{
    QVector<double> times;
    for (int i = 0; i < 200 && !interrupted(); ++i) {
        QElapsedTimer clock;
        clock.start();
        rig.ask("8000");
        times << double(clock.elapsed());
    }
    say(QString("\"8000\" %1 ms in the median, %2 ms at the latest of %3")
            .arg(median(times))
            .arg(times.isEmpty() ? 0 : *std::max_element(times.begin(), times.end()))
            .arg(times.size()));
    say(rig.run("/board/figures"));
}

int runChecks(const QString &part, bool figures)
{
    BoardRig rig;
    std::mt19937 random(1);
    QByteArray flash(131072, '\0');
    std::generate(flash.begin(), flash.end(), [&] { return char(random()); });
    rig.panel.writeFile("/dev/mtd0", flash);
    rig.powerOn();
    if (figures) {
        sayFigures(rig);
        return 0;
    }
    int wrong = 0;
    for (const Check &check : checks) {
        if (!QString(check.name).contains(part))
            continue;
        const QString fault = check.find(rig);
        wrong += !fault.isEmpty();
        say(QString(" %1 %2").arg(fault.isEmpty() ? "ok  " : "FAIL").arg(check.name)
                + (fault.isEmpty() ? "" : ": " + fault),
            !fault.isEmpty());
    }
    say("Not looked at: parity errors, which the emulated UART does not have");
    return wrong ? 1 : 0;
}

} // namespace

int runBoard(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Looks at what only drivers can show on the whole ARM machine of tools/board.sh.\n"
        "Exit status 0 if all of it is as it must be.",
        {{"cuts", "Instead cut the power so many times at random moments of production.", "count"},
         {"figures", "Instead print speed and size of the agent beside an empty window."},
         {"seed", "Of the moments (default 1).", "number", "1"}},
        {{"part", "Only the looks with this in their name.", "[part]"}});
    quitOnInterrupt();
    const uint seed = uint(parser.number("seed", 0, INT_MAX));
    return parser.isSet("cuts")
        ? cutBoardPower(parser.number("cuts", 1, 1000000), seed)
        : runChecks(parser.positionalArguments().value(0), parser.isSet("figures"));
}
