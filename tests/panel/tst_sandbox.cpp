#include "panel/control.h"
#include "panel/panelharness.h"

#include <QLocalSocket>
#include <QTcpSocket>

#include <csignal>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

// The bench itself: whether what happens inside a panel stays there, and whether its virtual
// hardware behaves as the real one would.
class TstSandbox : public QObject {
    Q_OBJECT

private slots:
    void clockStaysInside();
    void rtcSurvivesPowerCycle();
    void viewersAreOfThisMachine();
    void attributesAreNeverEmpty();
    void toolsHang();
    void agentOutlivesNothing();
    void remediesAreNamed();
    void machinesThatLackSomething();
    void clientsGoAsTheyLike();
};

namespace {

// Between this machine's clock and its uptime, in seconds: moves only if somebody sets the clock.
double machineOffset()
{
    timespec wall;
    clock_gettime(CLOCK_REALTIME, &wall);
    return double(wall.tv_sec) + double(wall.tv_nsec) / 1e9 - double(monotonicNs()) / 1e9;
}

} // namespace

void TstSandbox::clockStaysInside()
{
    const struct {
        const char *name;
        QString command;
        bool works;
    } rows[] = {
        {"date through the panel's image", "date 010100002015", true},
        {"date with seconds", "date 0101000015.00", true},
        {"date's own system call", "/usr/bin/date -s '2015-01-01 00:00'", false},
        {"the bare system call", "LD_PRELOAD= /usr/bin/date -s '2015-01-01 00:00'", false},
        {"hwclock", "hwclock -w -u", false},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        VirtualPanel panel(running("/bin/sh"));

        // First that it cannot do harm, and only then the attempt.
        QByteArray space = QFile::symLinkTarget("/proc/self/ns/user").section('/', -1).toLatin1();
        const QByteArray guard = runInside(
            panel,
            "readlink /proc/self/ns/user; grep CapEff /proc/self/status; tail -n +3 /proc/net/dev");
        QVERIFY2(!guard.contains(space) && guard.contains("user:["), guard);
        QVERIFY2(guard.contains("CapEff:\t0000000000000000"), guard);
        const QByteArray devices = guard.mid(guard.lastIndexOf("CapEff") + 24);
        QVERIFY2(devices.count(':') == 1 && devices.contains("lo:"), guard); // its own loopback

        const double before = machineOffset();
        const QByteArray printed =
            runInside(panel, row.command + " >/dev/null 2>&1; sh -c 'date +%Y-%m-%d'");
        QVERIFY(qAbs(machineOffset() - before) < 0.5);
        const QByteArray today =
            QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate).toLatin1();
        QCOMPARE(printed.trimmed(), row.works ? QByteArray("2015-01-01") : today);
    }
}

void TstSandbox::rtcSurvivesPowerCycle()
{
    VirtualPanel panel(running("/bin/sh"));
    runInside(
        panel,
        "cp /usr/share/zoneinfo/Asia/Taipei /etc/localtime; date 112110112026.12; hwclock -w -u");
    // UTC+8 from here on; the layout is what the agent takes apart by columns.
    const QByteArray next = runInside(
        panel,
        "date '+%a %b %e %H:%M'; hwclock -r -u; cat /sys/class/rtc/rtc0/since_epoch; date +%s");
    const QList<QByteArray> lines = next.split('\n');
    QCOMPARE(lines[0], QByteArray("Sat Nov 21 10:11"));
    QVERIFY2(QRegExp("Sat Nov 21 10:11:[1-5]\\d 2026  .*").exactMatch(lines[1]), next);
    QVERIFY2(qAbs(lines[2].toLongLong() - 1795227072) < 30, next);
    QVERIFY2(qAbs(lines[2].toLongLong() - lines[3].toLongLong()) <= 5, next);
}

// The viewers' way in listens for this machine only, and the panel's own server for nobody.
void TstSandbox::viewersAreOfThisMachine()
{
    VirtualPanel panel;
    panel.powerOn();
    QTRY_VERIFY_WITH_TIMEOUT(!panel.screen().grab().isNull(), DeadlineMs);
    QTcpSocket viewer;
    viewer.connectToHost(QHostAddress::LocalHost, panel.vncPort());
    QTRY_VERIFY(viewer.peek(3) == "RFB");
    // One that wants the bytes red, green, blue gets them so, and its mouse is a finger.
    const QImage image = panel.screen().grab();
    viewer.write("RFB 003.003\n");
    QTRY_COMPARE(viewer.bytesAvailable(), 16);
    viewer.write("\1");
    QTRY_VERIFY(viewer.peek(200).endsWith("Server"));
    viewer.readAll();
    viewer.write(QByteArray::fromHex("00000000"
                                     "20180001"
                                     "00ff00ff00ff"
                                     "000810"
                                     "000000"
                                     "0200000100000000"
                                     "03000000000003200020"));
    constexpr int size = 16 + 800 * 32 * 4;
    QTRY_VERIFY(viewer.bytesAvailable() >= size);
    const QByteArray pixels = viewer.readAll().mid(16);
    for (int i = 0; i < 800 * 32; ++i) {
        const QRgb pixel = image.pixel(i % 800, i / 800);
        const char *seen = pixels.constData() + 4 * i;
        QCOMPARE(qRgb(uchar(seen[0]), uchar(seen[1]), uchar(seen[2])), pixel);
    }
    viewer.write(QByteArray::fromHex("050100c80078"));
    QTRY_COMPARE(panel.attribute(attribute::adcX), QByteArray("1026"));
    viewer.disconnectFromHost();
    QTRY_COMPARE(panel.attribute(attribute::pressure), QByteArray("0"));
    QFile sockets("/proc/net/tcp");
    QVERIFY(sockets.open(QIODevice::ReadOnly));
    const QByteArray all = sockets.readAll();
    const QByteArray port =
        QByteArray::number(panel.vncPort(), 16).toUpper().rightJustified(4, '0');
    QVERIFY(all.contains(" 0100007F:" + port + " 00000000:0000 0A"));
    QVERIFY(!all.contains(":170C 00000000:0000 0A")); // 5900
}

void TstSandbox::attributesAreNeverEmpty()
{
    VirtualPanel panel(running("/bin/sh"));
    const QString battery = attribute::voltage(6);
    panel.powerOn({"-c",
                   QString("while [ ! -e /tmp/stop ]; do head -c 4 '%1' | tr -d '\\n' | grep -qx "
                           "-e 95 -e 2313 || echo bad; done")
                       .arg(battery)});
    for (int i = 0; i < 500; ++i) {
        panel.setAttribute(battery, i % 2 ? "2313" : "95");
        QThread::msleep(1);
    }
    panel.writeFile("/tmp/stop", "");
    QCOMPARE(panel.waitForExit(DeadlineMs), 0);
    QCOMPARE(panel.output(), QByteArray());
}

void TstSandbox::toolsHang()
{
    VirtualPanel panel(running("/bin/sh"));
    panel.toolHangs("chk_ddr.sh");
    QCOMPARE(runInside(panel, "timeout .3 /usr/local/ict/chk_ddr.sh; echo $?"),
             QByteArray("124\n"));
    QCOMPARE(panel.calls().size(), 1);
    runInside(panel, "true");
    QCOMPARE(panel.calls().size(), 0); // since the power-on
}

void TstSandbox::agentOutlivesNothing()
{
    const auto alive = [](qint64 pid) { return QFile::exists(QString("/proc/%1").arg(pid)); };
    VirtualPanel panel(running("/bin/sh"));
    panel.powerOn({"-c", "sleep 77 & setsid sleep 77 & exec sleep 77"});
    const qint64 agent = panel.agentPid();
    QVERIFY(agent && alive(agent) && panel.isOn());
    panel.powerOff();
    QVERIFY(!alive(agent) && !panel.isOn());

    // A bench that is killed itself takes its panel along, and one that has only begun.
    const QTemporaryDir programs;
    QFile slow(programs.filePath("bwrap"));
    QVERIFY(slow.open(QIODevice::WriteOnly) && slow.setPermissions(QFile::Permissions(0x7755)));
    slow.write("#!/bin/sh\necho begun; exec sleep 77");
    slow.close();
    for (const QByteArray &path : {QByteArray(), QFile::encodeName(programs.path()) + ':'}) {
        const QTemporaryDir folder;
        QProcess bench;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", path + qgetenv("PATH"));
        bench.setProcessEnvironment(environment);
        bench.start(QT_TESTCASE_BUILDDIR "/bench", {"panel", "--folder", folder.path()});
        QTRY_VERIFY(
            QFileInfo(folder.filePath(path.isEmpty() ? "root/run/bench/booted" : "agent.log"))
                .size()
            > 0);
        QFile list(QString("/proc/%1/task/%1/children").arg(bench.processId()));
        QVERIFY(list.open(QIODevice::ReadOnly));
        const qint64 sandbox = list.readAll().simplified().split(' ').first().toLongLong();
        QVERIFY(sandbox && alive(sandbox));
        bench.kill();
        QVERIFY(bench.waitForFinished());
        QTRY_VERIFY(!alive(sandbox));
    }
}

void TstSandbox::remediesAreNamed()
{
    VirtualPanel other(running("/bin/sh"));
    PanelOptions noAgent = running("/nowhere/ict-agent"), portTaken = running("/bin/sh");
    portTaken.vncPort = other.vncPort();
    const auto remedy = [](const PanelOptions &options) {
        try {
            VirtualPanel panel(options);
            panel.powerOn();
            return QString("it started");
        } catch (const BenchError &error) {
            return QString(error.what());
        }
    };
    QVERIFY2(remedy(noAgent).contains("build it first"), qPrintable(remedy(noAgent)));
    QVERIFY2(remedy(portTaken).contains("--vnc-port"), qPrintable(remedy(portTaken)));
    PanelOptions machine; // there is none, or it has no such disk
    machine.board = true;
    machine.ictDisk = IctDisk::full;
    QVERIFY2(remedy(machine).contains("ARM machine"), qPrintable(remedy(machine)));

    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    const int next = dup(0);
    close(next);
    const rlimit none{rlim_t(next), files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    QString said;
    try {
        other.setPlugged(Port::ttyO4, true);
    } catch (const BenchError &error) {
        said = error.what();
    }
    setrlimit(RLIMIT_NOFILE, &files);
    QVERIFY2(said.contains("ulimit"), qPrintable(said));

    PanelOptions foreign = running("/bin/sh");
    const QTemporaryDir home;
    foreign.folder = home.path();
    QVERIFY(QDir(home.path()).mkpath("root/letters"));
    QVERIFY2(remedy(foreign).contains("another folder"), qPrintable(remedy(foreign)));
    QCOMPARE(QDir(home.path() + "/root").entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList("letters"));
}

// Each in namespaces of its own, where the machine's files are out of reach.
void TstSandbox::machinesThatLackSomething()
{
    const QString panel = QT_TESTCASE_BUILDDIR "/bench panel";
    const struct {
        QStringList space;
        QString command, remedy;
    } rows[] = {
        {{"bwrap", "--die-with-parent", "--unshare-user", "--ro-bind", "/", "/", "--dev", "/dev"},
         "TMPDIR=/dev/null exec " + panel,
         "TMPDIR"},
        {{"unshare", "-r"},
         "echo 1 >/proc/sys/user/max_inotify_watches; exec " + panel,
         "fs.inotify.max_user_watches"},
        {{"unshare", "-r", "-m"},
         "mount -t tmpfs -o noexec none /mnt; TMPDIR=/mnt exec " + panel,
         "noexec"},
    };
    for (const auto &row : rows) {
        QProcess bench;
        bench.start(row.space[0],
                    row.space.mid(1) << "sh"
                                     << "-c" << row.command);
        QVERIFY2(bench.waitForFinished(DeadlineMs), qPrintable(row.command));
        const QByteArray said = bench.readAllStandardError();
        QVERIFY2(said.contains(row.remedy.toUtf8()), said);
    }
}

// While an action of `bench panel` runs, and with it the events.
void TstSandbox::clientsGoAsTheyLike()
{
    const QTemporaryDir folder;
    QLocalSocket client;
    int actions = 0;
    const PanelControl control(folder.path(), [&](const QString &, const QString &) {
        ++actions;
        client.abort();
        waitFor([] { return false; }, 100);
        return QString();
    });
    for (int wanted = 1; wanted <= 2; ++wanted) {
        client.connectToServer(folder.filePath("control.socket"));
        client.write("power cycle\n");
        QTRY_COMPARE(actions, wanted);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

QTEST_GUILESS_MAIN(TstSandbox)
#include "tst_sandbox.moc"
