#include "panel/agentpanel.h"
#include "panel/control.h"

static const QString bench = QT_TESTCASE_BUILDDIR "/bench";

// Faults by name: what is refused, and how they and all else of a running panel are switched from
// other programs.
class TstFaults : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void texts();
    void faultsOfARunningPanel();
    void itsPowerFingerAndScreen();
    void terminalAndEnd();

private:
    QString run(QStringList words)
    {
        QProcess program;
        program.setProcessChannelMode(QProcess::MergedChannels);
        if (words[0] != "send" && words[0] != "panel")
            words << "--panel" << folder_.path();
        program.start(bench, words);
        program.waitForFinished();
        return QString::number(program.exitCode()) + ' ' + program.readAll();
    }
    QString ask(const QString &request, const QString &ms = "20000")
    {
        const QString link = QRegularExpression("/dev/pts/\\d+").match(said_).captured();
        return run(QStringList{"send", "--port", link, "--timeout", ms} + request.split(' '));
    }
    bool tells(const QByteArray &line)
    {
        return waitFor([&] { return (said_ += panel_.readAll()).contains(line); }, DeadlineMs);
    }

    QTemporaryDir folder_;
    QProcess panel_;
    QByteArray said_; // by it
};

// `bench panel` in one program, `bench fault` in another, the station's own in a third.
void TstFaults::initTestCase()
{
    panel_.start(bench,
                 {"panel", "--traffic", "--folder", folder_.path(), "--fault", "battery:2900"});
    QVERIFY(tells("vncviewer"));
    QVERIFY(QFileInfo(folder_.filePath("ttyO1")).isSymLink());
}

void TstFaults::texts()
{
    VirtualPanel panel;
    Fixture fixture(panel);
    const auto complaint = [&](const QString &fault) {
        const QString text = fixture.act("fault", "set " + fault);
        return fixture.faults().isEmpty() ? text : "set all the same";
    };
    QVERIFY(complaint("lmc:3").contains("no fault \"lmc\""));
    QVERIFY(complaint("lcm:21").contains("1...20"));
    QVERIFY(complaint("lost").contains("file of"));
    QVERIFY(complaint("stick:2").contains("takes no value"));
    QVERIFY(complaint("lost:../../etc/passwd.txt").contains("file of"));
    QVERIFY(complaint("script:ls=missing").contains("no program ls"));
}

void TstFaults::faultsOfARunningPanel()
{
    QCOMPARE(run({"fault", "show"}), QString("0 battery:2900\n"));
    QTRY_VERIFY(ask("8800", "3000").contains(":0002906E\\r")); // once it has booted
    QCOMPARE(run({"fault", "set", "battery:3287"}), QString("0 set battery:3287: ok\n"));
    QTRY_VERIFY(ask("8800").contains(":000328D5\\r"));
    QVERIFY(run({"fault", "set", "lmc:1"}).startsWith("2 bench fault: there is no fault"));
    QCOMPARE(run({"fault", "clear"}), QString("0 ok\n"));
    QCOMPARE(run({"fault", "show"}), QString("0 no fault is set\n"));
    QTRY_VERIFY(ask("8800").contains(":000309F4\\r"));
    QVERIFY(tells("-- fault set battery:2900") && tells("-- fault set battery:3287"));
}

// The touch is seen through the panel's own calibration.
void TstFaults::itsPowerFingerAndScreen()
{
    QCOMPARE(run({"power", "off"}), QString("0 "));
    QVERIFY(run({"touch", "200", "120"}).startsWith("2 bench touch: the panel is off"));
    QCOMPARE(run({"power", "cycle"}), QString("0 "));
    QTRY_VERIFY(ask("8800").contains(":000309F4\\r")); // at once: it is up
    QCOMPARE(run({"touch", "press", "200", "120"}), QString("0 "));
    const auto position = QRegularExpression("\\( *(\\d+), *(\\d+)\\)").match(ask("9002"));
    QVERIFY(qAbs(position.captured(1).toInt() - 200) < 30);
    QVERIFY(qAbs(position.captured(2).toInt() - 120) < 30);
    QVERIFY(run({"touch", "800", "0"}).contains("800 x 480"));
    QVERIFY(run({"touch", "firmly"}).contains("unknown action"));
    QTRY_VERIFY(ask("9510 FF8000").contains("9510"));
    QCOMPARE(run({"look", "FF8000"}), QString("0 "));
    QVERIFY(run({"look", "red"}).startsWith("1 bench look: the screen"));
    QCOMPARE(run({"screenshot", folder_.filePath("screen.png")}), QString("0 "));
    QCOMPARE(QImage(folder_.filePath("screen.png")).pixel(400, 240), 0xffff8000);
    // Of two panels one must be named.
    const QTemporaryDir second;
    PanelControl other(second.path(), [](const QString &, const QString &) { return QString(); });
    QVERIFY_EXCEPTION_THROWN(PanelControl::send({}, "power on"), BenchError);
    QVERIFY(tells("-- power off") && tells("-- power on, level ICT")
            && tells("-- touch press 200 120"));
}

// The terminal as the panel's own hint has it: Enter ends a request.
void TstFaults::terminalAndEnd()
{
    const auto hint = QRegularExpression("socat (STDIO) (\\S+)").match(said_);
    QProcess terminal;
    terminal.start("socat", {hint.captured(1), hint.captured(2)});
    QByteArray shown;
    QVERIFY(waitFor(
        [&] {
            terminal.write(":00800080\n");
            terminal.waitForReadyRead(1000);
            return (shown += terminal.readAll()).contains(":00800080\n");
        },
        20000));
    terminal.kill();
    terminal.waitForFinished();
    QVERIFY(QRegularExpression("^1 (?s).*04F0").match(ask("0400")).hasMatch());
    QVERIFY(ask("8000", "300").contains("no answer"));
    QVERIFY(tells("refused: deaf"));
    QVERIFY(run({"panel", "--folder", folder_.path()}).contains("A panel runs in"));
    QVERIFY(run({"panel", "--vnc-port", "99999"}).startsWith("2 bench panel: --vnc-port takes"));
    panel_.terminate();
    QVERIFY(panel_.waitForFinished());
    QVERIFY(QDir(folder_.path()).entryList({"tty*"}, QDir::System).isEmpty());
    QVERIFY(run({"fault", "show"}).startsWith("2 bench fault: No `bench panel` runs in"));
}

QTEST_GUILESS_MAIN(TstFaults)
#include "tst_faults.moc"
