#include "panel/agentpanel.h"

// The panel's own files over boots: as the first one writes them, as cuts of power and broken disks
// leave them. The agent makes the best of what it finds and never ends over it.
class TstPanelFiles : public QObject {
    Q_OBJECT

private slots:
    void firstBoot_data();
    void firstBoot();
    void resultsSurvive();
    void damagedFiles_data();
    void damagedFiles();
    void brokenDisks_data();
    void brokenDisks();
    void noScreen();
};

Q_DECLARE_METATYPE(IctDisk)

namespace {

const QByteArray present = requestFrame("8000"), presentReply = ":00800080\r\n";
const QByteArray logFile = "FactoryTestLog.txt", levelFile = "HMI_TEST_LEVEL.txt",
                 flagFile = "HMI_ICT_TEST_Flag.txt", stationFile = "HMI_STATION_NUM.txt";

} // namespace

void TstPanelFiles::firstBoot_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<int>("items");
    QTest::addColumn<QByteArray>("last");
    QTest::newRow("ICT") << QByteArray("ICT") << 16 << QByteArray("16.ICT Test END Check: 0");
    QTest::newRow("T1") << QByteArray("T1") << 19 << QByteArray("19.T1 Test END Check: 0");
    QTest::newRow("BI") << QByteArray("BI") << 6 << QByteArray("6. BI Test END Check: 0");
    QTest::newRow("T2") << QByteArray("T2") << 17 << QByteArray("17.T2 Test END Check: 0");
}

void TstPanelFiles::firstBoot()
{
    QFETCH(QByteArray, level);
    QFETCH(int, items);
    QFETCH(QByteArray, last);
    AgentPanel at;
    VirtualPanel &panel = at.panel;
    const bool factoryNew = level == "ICT"; // with no file at all
    QVERIFY(factoryNew ? at.powerCycle() : at.boot(level));
    QCOMPARE(panel.readFile(at.ict(levelFile)), level.leftJustified(3, ' ') + '\n');
    const QByteArray flags = panel.readFile(at.ict("HMI_" + level + "_TEST_Flag.txt"));
    QCOMPARE(flags.size(), items * 64);
    QCOMPARE(flags.right(64), last + QByteArray(62 - last.size(), '\0') + "\r\n");
    QCOMPARE(at.results(level), QByteArray(items, '0'));
    // Made after the link was opened, which is what boot() waits for.
    QTRY_COMPARE(panel.readFile(at.ict(stationFile)), QByteArray(level == "BI" ? "00" : ""));
    QCOMPARE(QFile::exists(panel.hostPath(at.ict(stationFile))), level == "BI");
    const QByteArray log = panel.readFile(at.ict(logFile));
    QCOMPARE(log.size(), 100);
    QVERIFY2(log.mid(20).startsWith("Boot up at " + level + "\n\n" + '\0'), log);
    // Banner, level, date; the flag file did not exist yet.
    const QList<QByteArray> resume = panel.readFile(at.ict("HMI_Factory_Resume.txt")).split('\n');
    QCOMPARE(resume.size(), 4);
    QCOMPARE(resume[0], QByteArray("==================== Test Start ===================="));
    QCOMPARE(resume[1], level.leftJustified(3, ' '));
}

void TstPanelFiles::resultsSurvive()
{
    AgentPanel at;
    QVERIFY(at.boot("ICT"));
    QCOMPARE(at.ask(present), presentReply);
    QTRY_COMPARE(at.results("ICT").mid(3, 1), QByteArray("1"));
    QByteArray flags = at.panel.readFile(at.ict(flagFile));
    flags[qstrlen("1. Read HMI Model: ")] = 'F';
    at.panel.writeFile(at.ict(flagFile), flags);
    QVERIFY(at.powerCycle());
    QCOMPARE(at.panel.readFile(at.ict(flagFile)), flags);
    // A panel that is done, and one whose level file is gone, start over at ICT.
    at.panel.writeFile(at.ict(levelFile), "HMI\n");
    QVERIFY(at.powerCycle());
    QCOMPARE(at.panel.readFile(at.ict(levelFile)), QByteArray("HMI\n"));
    QCOMPARE(at.panel.readFile(at.ict(flagFile)), flags);
    QCOMPARE(at.ask(requestFrame("AB00"), 8), QByteArray("KLV-100\n"));
    QTRY_COMPARE(at.results("ICT").left(4), QByteArray("1001"));
}

void TstPanelFiles::damagedFiles_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content"); // null: a folder of that name is in the way
    QTest::addColumn<bool>("answers");
    QTest::addColumn<QByteArray>("results"); // after a passed item 4
    const auto row = [](const char *name, const QString &file, const QByteArray &content,
                        bool answers, const QByteArray &results) {
        QTest::newRow(name) << file << content << answers << results;
    };
    const QByteArray fresh = "0001000000000000";
    row("empty level file", levelFile, "", true, fresh);
    row("one letter of a level", levelFile, "T", true, fresh);
    row("noise for a level", levelFile, QByteArray(5000, '\xff'), true, fresh);
    row("unreadable level file", levelFile, {}, false, "");
    row("empty flag file", flagFile, "", true, "");
    row("flag file cut in the record", flagFile, QByteArray(3 * 64 + 20, '0'), true, "000");
    row("flag file of zero bytes", flagFile, QByteArray(16 * 64, '\0'), true, QByteArray(16, '?'));
    row("flag file of noise", flagFile, QByteArray(16 * 64, 'x'), true, QByteArray(16, 'x'));
    row("flag file too long", flagFile, QByteArray(100 * 64, 'x'), true, QByteArray(100, 'x'));
    row("unreadable flag file", flagFile, {}, false, "");
}

void TstPanelFiles::damagedFiles()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(bool, answers);
    QFETCH(QByteArray, results);
    AgentPanel at;
    if (content.isNull())
        QCOMPARE(at.fixture.setFault("unwritable:" + file), QString());
    else
        at.panel.writeFile(at.ict(file), content);
    if (answers) {
        QVERIFY(at.powerCycle());
        QCOMPARE(at.ask(present), presentReply);
        QTRY_COMPARE(at.results("ICT"), results);
    } else {
        // The window comes up, white, and the link stays closed.
        at.panel.powerOn();
        QTRY_VERIFY_WITH_TIMEOUT(colourAt(at.panel.screen().grab(), 790, 470) == Qt::white, 15000);
        QVERIFY(!at.panel.port(Port::ttyO1)->isOpenOnPanel());
    }
    QVERIFY(at.panel.isOn());
}

void TstPanelFiles::brokenDisks_data()
{
    QTest::addColumn<IctDisk>("disk");
    QTest::addColumn<bool>("used"); // files of an earlier boot are there
    QTest::addColumn<bool>("answers");
    QTest::newRow("read-only, new") << IctDisk::readOnly << false << false;
    QTest::newRow("read-only, used") << IctDisk::readOnly << true << false;
    QTest::newRow("full, new") << IctDisk::full << false << true;
    QTest::newRow("full, used") << IctDisk::full << true << true;
}

void TstPanelFiles::brokenDisks()
{
    QFETCH(IctDisk, disk);
    QFETCH(bool, used);
    QFETCH(bool, answers);
    PanelOptions options;
    options.ictDisk = disk;
    AgentPanel at(options);
    if (used) {
        at.panel.writeFile(at.ict(levelFile), "ICT\n");
        at.panel.writeFile(at.ict(flagFile), QByteArray(16 * 64, '0'));
    }
    if (!answers) {
        at.panel.powerOn();
        QTRY_VERIFY_WITH_TIMEOUT(colourAt(at.panel.screen().grab(), 790, 470) == Qt::white, 15000);
        QVERIFY(!at.panel.port(Port::ttyO1)->isOpenOnPanel());
    } else {
        QVERIFY(at.powerCycle());
        QCOMPARE(at.ask(present), presentReply);
        QCOMPARE(at.ask("KLV-101-01\n", 19, 1000), QByteArray("FORCIBLY_GOTO_FAIL"));
        QCOMPARE(at.ask(requestFrame("0400")), QByteArray(":0004F00C\r\n"));
    }
    QVERIFY(at.panel.isOn());
}

// A board whose framebuffer failed still answers: the toolkit alone would end the agent.
void TstPanelFiles::noScreen()
{
    AgentPanel board;
    board.panel.powerOn({"-platform", "linuxfb"});
    PcPort link(board.panel);
    QCOMPARE(link.ask(present), presentReply);
    QVERIFY(board.panel.isOn());
}

QTEST_GUILESS_MAIN(TstPanelFiles)
#include "tst_panelfiles.moc"
