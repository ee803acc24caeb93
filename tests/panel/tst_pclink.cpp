#include "panel/agentpanel.h"

// What a peer can do to the PC link: the agent answers where an answer is due, keeps quiet where
// none is, and goes on.
class TstPcLink : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void badInput_data();
    void badInput();
    void forcedChange_data();
    void forcedChange();
    void logCaps_data();
    void logCaps();
    void logRecord();
    void endCheckClosesTheLink();
    void stationNumbers();

private:
    std::unique_ptr<AgentPanel> ict_; // at ICT, for the tests that need no boot of their own
};

namespace {

const QByteArray present = requestFrame("8000"), presentReply = ":00800080\r\n";
const QByteArray logFile = "FactoryTestLog.txt", levelFile = "HMI_TEST_LEVEL.txt",
                 flagFile = "HMI_ICT_TEST_Flag.txt", stationFile = "HMI_STATION_NUM.txt";

} // namespace

void TstPcLink::initTestCase()
{
    ict_ = std::make_unique<AgentPanel>();
    QVERIFY(ict_->boot("ICT"));
}

using Pieces = QList<QByteArray>; // with a pause longer than the agent's patience between them
Q_DECLARE_METATYPE(Pieces)

void TstPcLink::badInput_data()
{
    QTest::addColumn<Pieces>("sent");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("swallowed"); // good frames that what came before them makes unreadable
    const auto row = [](const char *name, const Pieces &sent, const QByteArray &answer = {},
                        int swallowed = 0) { QTest::newRow(name) << sent << answer << swallowed; };
    QByteArray noise;
    for (int i = 0; i < 300; ++i)
        noise += char(i * 73 ^ 0xa5);
    const QByteArray zeroes(64, '\0'), colons(64, ':');
    row("noise", {noise});
    row("NUL bytes", {zeroes});
    row("start characters only", {colons});
    row("NUL in the code",
        {QByteArray(":0080\0"
                    "080\r\n",
                    11)});
    row("noise before a frame", {"x" + present});
    row("half a frame", {":00800"});
    row("half a frame and its rest, late", {":00800", "080\r\n"});
    row("two frames at once", {present + present}, presentReply + presentReply);
    row("two frames with a byte between", {present + 'x' + present}, presentReply);
    row("line ends swapped", {":00800080\n\r"});
    row("no line end", {":0080008000"});
    row("wrong check digits", {":00800081\r\n"});
    row("lower-case check digits", {":0085007b\r\n"});
    row("lower-case code, good check digits", {":00ab0055\r\n"});
    row("no hex digits at all", {":zz8000zz\r\n"});
    row("another panel's number", {requestFrame("8000", "05")});
    row("the station command at the wrong level", {requestFrame("8A00", "05")});
    row("a code of another level", {requestFrame("0100")});
    row("a line of 45 bytes", {":00" + QByteArray(40, '8') + "\r\n"});
    row("a clock request that stops", {":008D3015"});
    row("a clock request of 11 bytes that stops", {":008D301512"});
    row("a semi-machine ID that stops", {":000602SEMI-0123456789"});
    row("a semi-machine ID without end", {":000602" + QByteArray(80, 'S')}, ":0006F208\r\n");
    row("a machine ID without end", {":000601" + QByteArray(80, 'M')});
    // The panel waits for the line feed, however long that takes: it is the next frame's.
    row("a machine ID that stops", {":000601" + QByteArray(22, 'M')}, {}, 1);
    row("an unknown identity command", {":000604" + QByteArray(15, '0') + "\r\n"});
    row("a forced change of 300 bytes", {"KLV-100-01" + QByteArray(290, 'x')},
        "FORCIBLY_GOTO_FAIL");
}

void TstPcLink::badInput()
{
    QFETCH(Pieces, sent);
    QFETCH(QByteArray, answer);
    QFETCH(int, swallowed);
    const qint64 agent = ict_->panel.agentPid();
    for (const QByteArray &piece : qAsConst(sent)) {
        ict_->link().write(piece);
        QTest::qWait(200 + piece.size() * 11 / 9); // its time on the wire included
    }
    QCOMPARE(ict_->link().read(answer.size() + 1, 300), answer);
    for (int i = 0; i < swallowed; ++i)
        QCOMPARE(ict_->ask(present, 1, 300), QByteArray());
    // Until the panel has read the last of it, eleven bytes a tick.
    QTest::qWait(sent.last().size() * 10);
    QCOMPARE(ict_->ask(present), presentReply);
    QCOMPARE(ict_->panel.agentPid(), agent);
    QCOMPARE(ict_->panel.readFile(AgentPanel::ict(levelFile)), QByteArray("ICT\n"));
}

void TstPcLink::forcedChange_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("level"); // what the level file holds afterwards
    const auto row = [](const char *name, const QByteArray &line, const QByteArray &answer,
                        const QByteArray &level) {
        QTest::newRow(name) << line << (answer.isEmpty() ? answer : "FORCIBLY_GOTO_" + answer)
                            << level;
    };
    const QByteArray model = "KLV-100";
    row("to T1", model + "-01\n", "T1_PASS", "T1 \n");
    row("to BI", model + "-02\r\n", "BI_PASS", "BI \n");
    row("to T2", model + "-03\n", "T2_PASS", "T2 \n");
    row("to HMI", model + "-00\n", "HMI_PASS", "HMI\n");
    row("to ICT", model + "-04\n", "ICT_PASS", "ICT\n");
    row("to no level", model + "-05\n", "", "");
    row("digits that are none", model + "-\xff\xfe\n", "", "");
    row("a line of 39 bytes", model + "-01" + QByteArray(29, 'x'), "T1_PASS", "T1 \n");
    row("a line of 40 bytes", model + "-01" + QByteArray(30, 'x'), "FAIL", "ICT\n");
    row("another model", "KLV-101-01\n", "FAIL", "ICT\n");
    row("a shorter name of the family", "KLV-10-01\r\n", "T1_PASS", "T1 \n");
    row("a longer name", model + "X-01", "FAIL", "ICT\n");
    row("no second dash", model + "01xx", "FAIL", "ICT\n");
    row("shell characters", "KLV-`reboot`;$(id)-01", "FAIL", "ICT\n");
}

void TstPcLink::forcedChange()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, level);
    VirtualPanel &panel = ict_->panel;
    const QByteArray word = level.left(3).trimmed();
    const QString flags = AgentPanel::ict("HMI_" + word + "_TEST_Flag.txt"),
                  resume = AgentPanel::ict("HMI_Factory_Resume.txt");
    const QByteArray kept = panel.readFile(AgentPanel::ict(flagFile));
    panel.writeFile(AgentPanel::ict(levelFile), "ICT\n");
    panel.writeFile(resume, "");
    const bool done = answer.endsWith("PASS"), flagged = done && word != "HMI";
    if (flagged && word != "ICT")
        panel.writeFile(flags, "old results");

    QCOMPARE(ict_->ask(line, answer.size() + 1, 600), answer);
    QTRY_COMPARE(panel.readFile(AgentPanel::ict(levelFile)), level);
    QByteArray expected = "++++++++ Receive Forcibly Goto Command ++++++++\n";
    if (done)
        expected += "QZ! ===== Forcibly Goto " + word + " Pass!! =====\n";
    else if (!answer.isEmpty())
        expected += "=.=Forcibly Goto Fail=.=\n";
    QTRY_COMPARE(panel.readFile(resume), expected);
    // The new level starts with no results.
    QCOMPARE(QFile::exists(panel.hostPath(flags)), !flagged && word == "ICT");
    panel.writeFile(AgentPanel::ict(flagFile), kept);
    panel.writeFile(AgentPanel::ict(levelFile), "ICT\n");
}

void TstPcLink::logCaps_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("added");
    QTest::newRow("up to the warning's size") << 235929 - 100 << 100;
    QTest::newRow("over the warning's size") << 235930 - 100 << 136;
    QTest::newRow("at the cap") << 262144 << 136;
    QTest::newRow("over the cap") << 262145 << 0;
}

void TstPcLink::logCaps()
{
    QFETCH(int, before);
    QFETCH(int, added);
    const QString path = AgentPanel::ict(logFile);
    QVERIFY(QFile::resize(ict_->panel.hostPath(path), before));
    QCOMPARE(ict_->ask(present), presentReply);
    QTRY_COMPARE(ict_->panel.readFile(path).size(), before + added);
    QVERIFY(ict_->isSilent());
    const QByteArray end = ict_->panel.readFile(path).mid(before + 100);
    QCOMPARE(end, added > 100 ? QByteArray("File size going to exceed max size\n", 36) : "");
}

void TstPcLink::logRecord()
{
    const QString path = AgentPanel::ict(logFile);
    ict_->panel.writeFile(path, "");
    QCOMPARE(ict_->ask(present), presentReply);
    QTRY_COMPARE(ict_->panel.readFile(path).size(), 100);
    const QByteArray record = ict_->panel.readFile(path);
    // The panel's clock was preset at boot.
    QVERIFY2(record.startsWith("2015-01-01 00:0"), record);
    QCOMPARE(record.mid(19),
             "\n---> " + present + "<--- " + presentReply + '\n' + QByteArray(100 - 53, '\0'));
}

void TstPcLink::endCheckClosesTheLink()
{
    QCOMPARE(ict_->ask(requestFrame("0400")), QByteArray(":0004F00C\r\n"));
    QTRY_COMPARE(ict_->results("ICT").right(1), QByteArray("F"));
    QCOMPARE(ict_->panel.readFile(AgentPanel::ict(levelFile)), QByteArray("ICT\n"));
    QCOMPARE(ict_->ask(present, 11, 500), QByteArray());
    QVERIFY(ict_->panel.isOn());
}

void TstPcLink::stationNumbers()
{
    AgentPanel at;
    at.panel.writeFile(at.ict(stationFile), "1F");
    QVERIFY(at.boot("BI"));
    const QByteArray frame = requestFrame("9504", "1F");
    QCOMPARE(at.ask(requestFrame("9504", "1E"), 1, 300), QByteArray());
    QCOMPARE(at.ask(requestFrame("8A00", "1E"), 1, 300), QByteArray()); // no table has it here
    QCOMPARE(at.ask(frame), frame);
    QCOMPARE(at.ask(requestFrame("9504")), frame); // the reply echoes the code
    QCOMPARE(at.ask("KLV-101-01\n", 19, 600), QByteArray("FORCIBLY_GOTO_FAIL"));
    // The exchanges of a shared bus are not logged.
    QCOMPARE(at.panel.readFile(at.ict(logFile)).size(), 100);
    QCOMPARE(at.results("BI"), QByteArray("100000"));
    // Without its number a panel on the bus keeps quiet.
    QVERIFY(QFile::remove(at.panel.hostPath(at.ict(stationFile))));
    QCOMPARE(at.ask(frame, 1, 300), QByteArray());
    QVERIFY(at.panel.isOn());
}

QTEST_GUILESS_MAIN(TstPcLink)
#include "tst_pclink.moc"
