#include "panel/files.h"
#include "panel/panelharness.h"

#include <QDir>

// The image's start-up and check scripts, run on a virtual panel. In the agent's place stands a
// program that says how it was called.
class TstImageStartup : public QObject {
    Q_OBJECT

private slots:
    void levelFileChooses();
    void startsAgainWithTheLevelOfTheMoment();
    void stopEndsTheProgram();
    void startedOnceByInit();
    void checkNamesWhatIsMissing();
};

namespace {

const QString script = "/usr/local/ict/start-panel.sh";
const QString levelFile = "/usr/local/ict/HMI_TEST_LEVEL.txt";

void installAgent(VirtualPanel &panel, const QByteArray &commands)
{
    const QString path = "/usr/local/bin/ict-agent";
    panel.writeFile(path, "#!/bin/sh\n" + commands + '\n');
    QFile::setPermissions(panel.hostPath(path), QFile::Permissions(0x7755));
}

} // namespace

void TstImageStartup::levelFileChooses()
{
    // Factory-new there is no file; a forced change to nowhere leaves an empty one.
    for (const QByteArray &level : {QByteArray(), QByteArray(""), QByteArray("ICT\n"),
                                    QByteArray("T2 \n"), QByteArray("HMI\n"), QByteArray("HMI")}) {
        const bool released = level.startsWith("HMI");
        VirtualPanel panel(running("/bin/sh"));
        installAgent(panel, "echo \"agent $* $QT_QPA_FB_TSLIB\"");
        QDir().mkpath(panel.hostPath("/etc/default"));
        panel.writeFile("/etc/default/ict-panel", "QT_QPA_FB_TSLIB=7\n");
        if (!level.isNull())
            panel.writeFile(levelFile, level);

        const QByteArray planned = runInside(panel, script + " --dry-run");
        const QByteArray printed = runInside(panel, script);
        QCOMPARE(planned,
                 QByteArray(released ? "/usr/local/HMIAPP/HMIApp" : "/usr/local/bin/ict-agent")
                     + " -platform linuxfb\n");
        QCOMPARE(printed == "agent -platform linuxfb 7\n", !released);
        QCOMPARE(panel.calls().size(), released ? 1 : 0);
        if (!released)
            continue;
        QCOMPARE(panel.calls()[0].line(), QString("HMIApp -platform linuxfb"));
        // Never the agent on a released panel, not even for want of anything else.
        panel.toolMissing("HMIApp");
        QCOMPARE(runInside(panel, script + "; echo $?"), QByteArray("127\n"));
    }
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel, "echo agent");
    QDir().mkpath(panel.hostPath(levelFile)); // there, but unreadable
    QCOMPARE(runInside(panel, script + "; echo $?"), QByteArray("127\n"));
}

void TstImageStartup::startsAgainWithTheLevelOfTheMoment()
{
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel,
                 "echo agent\n[ -e /tmp/again ] && echo HMI >" + levelFile.toLatin1()
                     + "\n: >/tmp/again\nkill -9 $$");
    panel.powerOn({script, "--forever"});
    QTRY_VERIFY(!panel.calls().isEmpty());
    QVERIFY(panel.isOn());
    QVERIFY2(panel.output().startsWith("agent\nagent\n"), panel.output());
    QCOMPARE(panel.output().count("agent"), 2);
}

void TstImageStartup::stopEndsTheProgram()
{
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel,
                 "trap '' TERM; echo $$ >/tmp/pid; exec sleep 77"); // in the middle of a test
    const QByteArray printed = runInside(panel,
                                         script
                                             + " --forever & until [ -s /tmp/pid ]; do sleep .1; "
                                               "done; kill $!; wait $!; echo $?; kill -0 $(cat "
                                               "/tmp/pid) 2>/dev/null || echo gone");
    QCOMPARE(printed, QByteArray("0\ngone\n"));
}

void TstImageStartup::startedOnceByInit()
{
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel, "echo $$ >>/tmp/starts; exec sleep 77");
    QDir().mkpath(panel.hostPath("/var/log"));
    QVERIFY(QFile::copy(panel.hostPath(script), panel.hostPath("/usr/local/bin/start-panel.sh")));
    QVERIFY(QFile::copy(sharedFile("image/ict-panel.init"), panel.hostPath("/etc/ict-panel")));
    const QByteArray printed = runInside(
        panel,
        "cd /etc; started() { until [ $(wc -l </tmp/starts) -ge $1 ]; do sleep .1; done; }\n"
        ": >/tmp/starts; echo 1 >/run/ict-panel.pid; mkdir /var/log/ict-panel.log\n"
        "./ict-panel status; echo $?; ./ict-panel start; started 1\n"
        "./ict-panel start; ./ict-panel status | cut -d, -f1; ./ict-panel restart; started 2\n"
        "./ict-panel stop; ./ict-panel status; echo $?\n"
        "for pid in $(cat /tmp/starts); do kill -0 $pid 2>/dev/null && echo left; done");
    QCOMPARE(printed, QByteArray("3\nrunning\n3\n"));
}

static const struct {
    const char *name;
    QString damage; // shell command on the panel
    QByteArray row; // of the table, blanks squeezed
} damages[] = {
    {"a good panel", ":", ""},
    {"port", "rm /dev/ttyO3", "/dev/ttyO3 missing"},
    {"port that another reads", "sleep 60 </dev/ttyO3 >/dev/null 2>&1 &",
     "/dev/ttyO3 held by sleep"},
    {"agent of another machine", "echo : >/usr/local/bin/ict-agent",
     "/usr/local/bin/ict-agent not a program for this machine"},
    {"file in the port's place", "rm /dev/ttyO1; echo >/dev/ttyO1", "/dev/ttyO1 not a device"},
    {"attribute without a number", "echo n/a >/sys/class/input/input0/device/ADC_X",
     "/sys/class/input/input0/device/ADC_X reads \"n/a\""},
    {"attribute not writable",
     "cd /sys/class/backlight/backlight; rm brightness; ln -s /proc/version brightness",
     "/sys/class/backlight/backlight/brightness not writable"},
    {"script not executable", "cd /usr/local/ict; rm chk_ddr.sh; echo >chk_ddr.sh",
     "/usr/local/ict/chk_ddr.sh not executable"},
    {"hwclock that prints ISO 8601",
     "mkdir -p /run/bench/fault; echo 2025-11-21 14:15:30+00:00 >/run/bench/fault/hwclock",
     "hwclock prints \"2025-11-21"},
    {"link to a zone file", "ln -sf /usr/share/zoneinfo/Etc/UTC /etc/localtime",
     "/etc/localtime a link to /usr/share/zoneinfo/Etc/UTC"},
    {"command of the boot loader", "rm /usr/local/bin/fw_setenv", "fw_setenv missing"},
    {"pointer calibration cut short", "echo 1 2 3 4 5 6 >/etc/pointercal",
     "/etc/pointercal 6 numbers"},
    {"screen of another size", "echo 1024,600 >/sys/class/graphics/fb0/virtual_size",
     "/sys/class/graphics/fb0/virtual_size 1024,600"},
    {"mute input device",
     "cd /sys/class/input; mkdir -p event1/device/capabilities; echo 0 "
     ">event1/device/capabilities/snd",
     "/dev/input/event1 makes no sound"},
};

void TstImageStartup::checkNamesWhatIsMissing()
{
    for (const auto &row : damages) {
        qInfo("%s", row.name);
        VirtualPanel panel(running("/bin/sh"));
        installAgent(panel, ":");
        QFile::remove(panel.hostPath("/usr/local/bin/ict-agent"));
        QFile::copy("/bin/true", panel.hostPath("/usr/local/bin/ict-agent"));
        // What a board has and the sandbox, whose screen is a network service, has not.
        QDir().mkpath(panel.hostPath("/sys/class/net/eth0"));
        QDir().mkpath(panel.hostPath("/sys/class/graphics/fb0"));
        panel.writeFile("/sys/class/graphics/fb0/virtual_size", "800,960\n");
        const QByteArray sram = panel.readFile("/dev/OstraHMI_GPMC_RW");
        const QByteArray table =
            runInside(panel, row.damage + "\n/usr/local/ict/check-panel.sh; echo status $?");

        QByteArrayList missing;
        for (const QByteArray &line : table.split('\n')) {
            if (line.startsWith("MISSING"))
                missing << line.mid(8).simplified();
        }
        QVERIFY2(missing.size() == (row.row.isEmpty() ? 0 : 1), table);
        QVERIFY2(row.row.isEmpty() || missing[0].startsWith(row.row), table);
        QVERIFY2(table.endsWith(row.row.isEmpty() ? "status 0\n" : "status 1\n"), table);
        // It has looked and done nothing.
        QCOMPARE(panel.calls().size(), 1);
        QCOMPARE(panel.calls()[0].line(), QString("hwclock -r -u"));
        QCOMPARE(panel.readFile("/dev/OstraHMI_GPMC_RW"), sram);
    }
}

QTEST_GUILESS_MAIN(TstImageStartup)
#include "tst_image_startup.moc"
