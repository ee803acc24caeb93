#include "panel/panelharness.h"

#include <QDir>

// The image's start-up and check scripts, run on a virtual panel. In the agent's place stands a
// program that says how it was called.
class TstImageStartup : public QObject {
    Q_OBJECT

private slots:
    void levelFileChooses_data();
    void levelFileChooses();
    void startsAgainWithTheLevelOfTheMoment();
    void stopEndsTheProgram();
    void checkNamesWhatIsMissing_data();
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

void TstImageStartup::levelFileChooses_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<bool>("released");
    QTest::newRow("factory-new: no file") << QByteArray() << false;
    QTest::newRow("emptied by a forced change to nowhere") << QByteArray("") << false;
    QTest::newRow("ICT") << QByteArray("ICT\n") << false;
    QTest::newRow("T2") << QByteArray("T2 \n") << false;
    QTest::newRow("HMI") << QByteArray("HMI\n") << true;
    QTest::newRow("HMI without a line end") << QByteArray("HMI") << true;
}

void TstImageStartup::levelFileChooses()
{
    QFETCH(QByteArray, level);
    QFETCH(bool, released);
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
        return;
    QCOMPARE(panel.calls()[0].line(), QString("HMIApp -platform linuxfb"));
    // Never the agent on a released panel, not even for want of anything else.
    panel.toolMissing("HMIApp");
    QCOMPARE(runInside(panel, script + "; echo $?"), QByteArray("127\n"));
}

void TstImageStartup::startsAgainWithTheLevelOfTheMoment()
{
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel,
                 "echo agent\n[ -e /tmp/again ] && echo HMI >" + levelFile.toLatin1()
                     + "\n: >/tmp/again\nkill -9 $$");
    panel.powerOn({script, "--forever"});
    QTRY_VERIFY_WITH_TIMEOUT(!panel.calls().isEmpty(), 20000);
    QVERIFY(panel.isOn());
    QVERIFY2(panel.output().startsWith("agent\nagent\n"), panel.output());
    QCOMPARE(panel.output().count("agent"), 2);
}

void TstImageStartup::stopEndsTheProgram()
{
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel, "echo $$ >/tmp/pid; exec sleep 77");
    const QByteArray printed = runInside(panel,
                                         script
                                             + " --forever & until [ -s /tmp/pid ]; do sleep .1; "
                                               "done; kill $!; wait $!; echo $?; kill -0 $(cat "
                                               "/tmp/pid) 2>/dev/null || echo gone");
    QCOMPARE(printed, QByteArray("0\ngone\n"));
}

void TstImageStartup::checkNamesWhatIsMissing_data()
{
    QTest::addColumn<QString>("damage"); // shell command on the panel
    QTest::addColumn<QByteArray>("row"); // of the table, blanks squeezed
    QTest::newRow("a good panel") << ":" << QByteArray();
    QTest::newRow("port") << "rm /dev/ttyO3" << QByteArray("/dev/ttyO3 missing");
    QTest::newRow("file in the port's place")
        << "rm /dev/ttyO1; echo >/dev/ttyO1" << QByteArray("/dev/ttyO1 not a device");
    QTest::newRow("attribute without a number")
        << "echo n/a >/sys/class/input/input0/device/ADC_X"
        << QByteArray("/sys/class/input/input0/device/ADC_X reads \"n/a\"");
    QTest::newRow("attribute not writable")
        << "cd /sys/class/backlight/backlight; rm brightness; ln -s /proc/version brightness"
        << QByteArray("/sys/class/backlight/backlight/brightness not writable");
    QTest::newRow("script not executable")
        << "cd /usr/local/ict; rm chk_ddr.sh; echo >chk_ddr.sh"
        << QByteArray("/usr/local/ict/chk_ddr.sh not executable");
    QTest::newRow("command of the boot loader")
        << "rm /usr/local/bin/fw_setenv" << QByteArray("fw_setenv missing");
    QTest::newRow("pointer calibration cut short")
        << "echo 1 2 3 4 5 6 >/etc/pointercal" << QByteArray("/etc/pointercal 6 numbers");
    QTest::newRow("screen of another size")
        << "echo 1024,600 >/sys/class/graphics/fb0/virtual_size"
        << QByteArray("/sys/class/graphics/fb0/virtual_size 1024,600");
    QTest::newRow("mute input device")
        << "cd /sys/class/input; mkdir -p event1/device/capabilities; echo 0 "
           ">event1/device/capabilities/snd"
        << QByteArray("/dev/input/event1 makes no sound");
}

void TstImageStartup::checkNamesWhatIsMissing()
{
    QFETCH(QString, damage);
    QFETCH(QByteArray, row);
    VirtualPanel panel(running("/bin/sh"));
    installAgent(panel, ":");
    // What a board has and the sandbox, whose screen is a network service, has not.
    QDir().mkpath(panel.hostPath("/sys/class/net/eth0"));
    QDir().mkpath(panel.hostPath("/sys/class/graphics/fb0"));
    panel.writeFile("/sys/class/graphics/fb0/virtual_size", "800,960\n");
    const QByteArray sram = panel.readFile("/dev/OstraHMI_GPMC_RW");
    const QByteArray table =
        runInside(panel, damage + "\n/usr/local/ict/check-panel.sh; echo status $?");

    QByteArrayList missing;
    for (const QByteArray &line : table.split('\n')) {
        if (line.startsWith("MISSING"))
            missing << line.mid(8).simplified();
    }
    QVERIFY2(missing.size() == (row.isEmpty() ? 0 : 1), table);
    QVERIFY2(row.isEmpty() || missing[0].startsWith(row), table);
    QVERIFY2(table.endsWith(row.isEmpty() ? "status 0\n" : "status 1\n"), table);
    // It has looked and done nothing.
    QVERIFY(panel.calls().isEmpty());
    QCOMPARE(panel.readFile("/dev/OstraHMI_GPMC_RW"), sram);
}

QTEST_GUILESS_MAIN(TstImageStartup)
#include "tst_image_startup.moc"
