#include "panel/board.h"
#include "commands/commands.h"
#include "commands/interrupt.h"
#include "fixture/fixture.h"
#include "panel/filewrite.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/runner.h"

#include <QCommandLineParser>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <random>

// What only drivers can show, on the whole ARM machine: a look at each, and cuts of its power.
namespace {

const char levelFile[] = "/usr/local/ict/HMI_TEST_LEVEL.txt";
constexpr int readyMs = 120000;

PanelOptions machineWith(IctDisk disk)
{
    PanelOptions options;
    options.board = true;
    options.ictDisk = disk;
    return options;
}

// The machine on its fixture, with a station.
struct Rig {
    explicit Rig(IctDisk disk = IctDisk::normal)
        : panel(machineWith(disk))
        , fixture(panel)
    {
        panel.factoryNew();
    }
    // Throws when the panel does not come up.
    void powerOn()
    {
        panel.powerOn();
        // Factory-new the agent makes the file, in its boot.
        const auto atLevel = [this] {
            level = levelByName(run(QString("cat ") + levelFile).trimmed());
            return level >= 0;
        };
        if (!waitFor(atLevel, readyMs)) {
            throw BenchError("The panel has no legal level: " + panel.output());
        }
        const Port port = level == Bi ? Port::ttyO3 : Port::ttyO1;
        QString error;
        if (!waitFor([&] { return panel.isReady(port); }, readyMs)) {
            throw BenchError("The agent does not open its port: " + panel.output());
        }
        if (!link.open(panel.linkPath(port), modeAt(level), &error)) {
            throw BenchError(error);
        }
    }
    QByteArray run(const QString &command)
    {
        return panel.board()->run(command);
    }
    // What the panel answers within `ms`, empty for nothing; ids and the like as `argument`.
    QByteArray ask(const char *code, const QString &argument = {}, int ms = 20000)
    {
        Step step;
        step.code = code;
        step.argument = argument;
        Link::Request request;
        request.bytes = requestOf(step, {{"model", "KLV-100"}}, 0);
        request.timeoutMs = ms;
        request.framed = findCommand(code) && findCommand(code)->framed;
        return decode(link.exchange(request).bytes).payload;
    }

    VirtualPanel panel;
    Fixture fixture;
    Link link;
    int level = Ict;
};

QString differs(const QString &what, const QString &is, const QString &wanted)
{
    return is.contains(QRegularExpression(wanted))
        ? QString()
        : QString("%1 is \"%2\" instead of %3").arg(what, is.simplified().left(160), wanted);
}

// The settings that a port had at any moment while a request ran.
QString settingsDuring(Rig &rig, const char *port, const char *code)
{
    rig.run(QString("(for i in $(seq 60); do stty -a -F /dev/%1; usleep 15000; done "
                    ">/tmp/lines 2>/dev/null) &")
                .arg(port));
    rig.ask(code);
    return rig.run("cat /tmp/lines; rm /tmp/lines");
}

QString lineSettings(Rig &rig)
{
    QString fault = differs("ttyO1", rig.run("stty -a -F /dev/ttyO1 2>/dev/null"),
                            "(?s)^speed 9600.*\\bparenb -parodd.*cs8.* -cstopb.* crtscts.*inpck");
    const QString during = settingsDuring(rig, "ttyO4", "8107");
    fault += differs("ttyO4 in the RS-422 test", during,
                     "(?s)speed 19200 baud;[^;]*;[^s]*.*?-parenb.*?cs8");
    return fault + differs("ttyO4 as RS-485", during, "(?s)speed 9600.*?parenb -parodd.*?cs7");
}

// Nothing leaves while the peer's CTS is off. The emulator raises the line again at a reset only.
QString peerHoldsCts(Rig &rig)
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

// A break comes as a zero byte, which costs the request behind it; the next one is answered.
QString breakOnTheLine(Rig &rig)
{
    rig.panel.board()->monitor("chardev-send-break", {{"id", "link"}});
    const QString driver = rig.run("sleep 1; grep ^0: /proc/tty/driver/serial");
    rig.ask("8000", {}, 3000);
    return differs("the driver", driver, "brk:1")
        + differs("the second answer after it", rig.ask("8000"), "^8000$");
}

QString frameBuffer(Rig &rig)
{
    rig.ask("9510", "0080FF");
    const QString pixels = rig.run("for y in 0 239 479; do dd if=/dev/fb0 bs=4 count=1 skip=$((y * "
                                   "800 + 799)) 2>/dev/null; done | od -A n -t x4");
    return differs("a pixel", pixels, "^\\s*(..0080ff\\s*){3}$");
}

// The finger's pixel comes through the kernel's input layer and the toolkit's plugin, wherever the
// foil puts it: calibration passes, then the same with a foil that no calibration makes good.
QString touch(Rig &rig)
{
    const QString seen = rig.run("ls -l /proc/$(pidof ict-agent)/fd | grep -c /dev/input/event0");
    return differs("readers of the touch device", seen, "^1\\s*$");
}

QString sound(Rig &rig)
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

QString clocks(Rig &rig)
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

QString nand(Rig &rig)
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
QString medium(Rig &rig, const char *name, const char *code, const char *refusal,
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

QString stick(Rig &rig)
{
    return medium(rig, "usb", "CC10", "CCE0", "/media/sda1", "/dev/sd[a-z]1");
}

QString card(Rig &rig)
{
    return medium(rig, "sd", "CC11", "CCE1", "/media/mmcblk0p1", "/dev/mmcblk0p1");
}

QString boardCheck(Rig &rig)
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
    QString (*find)(Rig &rig); // what is wrong, empty for nothing
};
const Check checks[] = {
    {"line settings", lineSettings},
    {"CTS held by the peer", peerHoldsCts},
    {"a break on the line", breakOnTheLine},
    {"frame buffer", frameBuffer},
    {"touch device", touch},
    {"sound events", sound},
    {"clocks", clocks},
    {"NAND", nand},
    {"USB stick, hot-plugged", stick},
    {"SD card", card},
    {"check-panel.sh", boardCheck},
};

int runChecks()
{
    Rig rig;
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
    return wrong ? 1 : 0;
}

// --- Power cuts ----------------------------------------------------------------------------------

// What a panel has confirmed, and what was asked last and may be done or not.
struct Confirmed {
    QByteArray level = "ICT\n", asked = level;
    QByteArray id;
    QMap<int, QByteArray> items; // recorded: a later request has been answered as well
    int answered = -1; // the item confirmed last, which may not be recorded yet
};

struct Request {
    const char *code, *argument;
    int item; // line of the item at ICT, -1 for none
};

// A short pass: items at ICT and T1, an ID, and from level to level by forced changes.
const Request pass[] = {
    {"8000", "", 3}, {"8500", "", 6}, {"0602", "SEMI2511", 9}, {"A200", "", 12}, {"AB00", "", 0},
};

// One power-up until the cut at `cutMs` after the panel's link is open.
void work(Rig &rig, int cutMs, int turn, Confirmed *known)
{
    QElapsedTimer clock;
    clock.start();
    const auto left = [&] { return int(qMax<qint64>(1, cutMs - clock.elapsed())); };
    while (clock.elapsed() < cutMs) {
        for (const Request &step : pass) {
            if (rig.level != Ict || clock.elapsed() >= cutMs) {
                continue;
            }
            const QString id = QString("%1%2").arg(step.argument).arg(turn, 4, 10, QChar('0'));
            const QByteArray answer = rig.ask(step.code, *step.argument ? id : QString(), left());
            if (answer.isEmpty()) {
                return;
            }
            if (known->answered >= 0) {
                known->items[known->answered] = "1";
            }
            known->answered = step.item;
            if (*step.argument) {
                known->id = id.toLatin1();
            }
        }
        if (clock.elapsed() >= cutMs) {
            return;
        }
        // Every level of the four in turn; the panel goes on at its level until it is switched off.
        const QByteArray next[] = {"T1", "BI", "T2", "ICT"};
        const QByteArray to = next[rig.level];
        known->asked = to.leftJustified(3) + '\n';
        if (rig.ask("KLV-", to, left()).contains("PASS")) {
            known->level = known->asked;
        }
    }
}

// What the panel has lost or broken, after it has booted again.
QString lost(Rig &rig, Confirmed *known)
{
    const QByteArray level = rig.run(QString("cat ") + levelFile);
    const QByteArray flags = rig.run("tr '\\000' ' ' </usr/local/ict/HMI_ICT_TEST_Flag.txt");
    const QByteArray id = rig.run("cat /usr/local/ict/HMI_SEMIMACHINE_ID.txt 2>/dev/null");
    const QByteArray kernel = rig.run("dmesg | grep -i 'ext4-fs.*\\(error\\|corrupt\\)'");
    QString fault;
    if (level != known->level && level != known->asked) {
        fault += QString("level %1 instead of %2; ").arg(printable(level), printable(known->level));
    }
    for (auto item = known->items.begin(); item != known->items.end() && rig.level == Ict; ++item) {
        const QByteArray line = flags.split('\n').value(item.key()).trimmed();
        if (!line.endsWith(item.value())) {
            fault += QString("item %1 reads \"%2\"; ").arg(item.key() + 1).arg(QString(line));
        }
    }
    if (!known->id.isEmpty() && id < known->id) {
        fault += QString("ID %1 instead of %2; ").arg(QString(id), QString(known->id));
    }
    if (!kernel.isEmpty()) {
        fault += "file system: " + kernel;
    }
    known->level = known->asked = level;
    known->answered = -1;
    if (rig.level != Ict) {
        known->items.clear();
    }
    return fault;
}

int cutPower(int cuts, uint seed)
{
    std::mt19937 random(seed);
    Rig rig(IctDisk::own);
    Confirmed known;
    int wrong = 0;
    rig.powerOn();
    for (int cut = 1; cut <= cuts; ++cut) {
        const int ms = int(random() % 6000);
        const int level = rig.level;
        work(rig, ms, cut, &known);
        rig.panel.powerOff();
        rig.powerOn();
        const QString fault = lost(rig, &known);
        wrong += !fault.isEmpty();
        say(QString(" %1 cut %2 at %3 after %4 ms: boots at %5, %6 %7")
                .arg(fault.isEmpty() ? "ok  " : "FAIL")
                .arg(cut)
                .arg(levelName(level))
                .arg(ms)
                .arg(levelName(rig.level))
                .arg(
                    QString(rig.run("dmesg | grep -o 'recovery complete' || echo clean")).trimmed(),
                    fault),
            !fault.isEmpty());
    }
    rig.panel.powerOff();
    say(QString("%1 cuts (seed %2), %3 wrong").arg(cuts).arg(seed).arg(wrong), wrong);
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
        ? cutPower(parser.value("cuts").toInt(), parser.value("seed").toUInt())
        : runChecks();
}
