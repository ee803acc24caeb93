#include "panel/agentpanel.h"

// What a peer can do to the PC link: the agent answers where an answer is due, keeps quiet where
// none is, and goes on.
class TstPcLink : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void badInput_data();
    void badInput();
    void forcedChange();
    void logCaps();
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

struct Input {
    const char *name;
    QList<QByteArray> sent; // with a pause longer than the agent's patience between them
    QByteArray answer = "";
};
Q_DECLARE_METATYPE(Input)

void TstPcLink::badInput_data()
{
    QByteArray noise;
    for (int i = 0; i < 300; ++i)
        noise += char(i * 73 ^ 0xa5);
    const QByteArray zeroes(64, '\0'), colons(64, ':');
    addRows<Input>({
        {"noise", {noise}},
        {"NUL bytes", {zeroes}},
        {"start characters only", {colons}},
        {"NUL in the code", {QByteArray(":0080\000080\r\n", 11)}},
        {"noise before a frame", {"x" + present}},
        {"half a frame", {":00800"}},
        {"half a frame and its rest, late", {":00800", "080\r\n"}},
        {"two frames at once", {present + present}, presentReply + presentReply},
        {"two frames with a byte between", {present + 'x' + present}, presentReply},
        {"no line end", {":0080008000"}},
        {"lower-case code, good check digits", {":00ab0055\r\n"}},
        {"no hex digits at all", {":zz8000zz\r\n"}},
        {"the station command at the wrong level", {requestFrame("8A00", "05")}},
        {"a code of another level", {requestFrame("0100")}},
        {"a line of 45 bytes", {":00" + QByteArray(40, '8') + "\r\n"}},
        {"a clock request that stops", {":008D3015"}},
        {"a clock request of 11 bytes that stops", {":008D301512"}},
        {"a semi-machine ID that stops", {":000602SEMI-0123456789"}},
        {"a semi-machine ID without end", {":000602" + QByteArray(80, 'S')}, ":0006F208\r\n"},
        {"a machine ID without end", {":000601" + QByteArray(80, 'M')}},
        // The panel waits for the line feed, however long that takes: it is the next frame's.
        {"a machine ID that stops", {":000601" + QByteArray(22, 'M'), present}},
        {"an unknown identity command", {":000604" + QByteArray(15, '0') + "\r\n"}},
        {"a forced change of 300 bytes",
         {"KLV-100-01" + QByteArray(290, 'x')},
         "FORCIBLY_GOTO_FAIL"},
    });
}

void TstPcLink::badInput()
{
    QFETCH(Input, row);
    const qint64 agent = ict_->panel.agentPid();
    for (int i = 0; i + 1 < row.sent.size(); ++i)
        ict_->sendAndSettle(row.sent[i]);
    QCOMPARE(ict_->all(row.sent.last()), row.answer);
    QCOMPARE(ict_->panel.agentPid(), agent);
    QCOMPARE(ict_->panel.readFile(AgentPanel::ict(levelFile)), QByteArray("ICT\n"));
}

void TstPcLink::forcedChange()
{
    const QByteArray model = "KLV-100", answer = "FORCIBLY_GOTO_", fail = answer + "FAIL",
                     t1 = answer + "T1_PASS";
    const struct {
        const char *name;
        QByteArray line, answer;
        QByteArray level; // what the level file holds afterwards
    } rows[] = {
        {"to T1", model + "-01\n", t1, "T1 \n"},
        {"to BI", model + "-02\r\n", answer + "BI_PASS", "BI \n"},
        {"to T2", model + "-03\n", answer + "T2_PASS", "T2 \n"},
        {"to HMI", model + "-00\n", answer + "HMI_PASS", "HMI\n"},
        {"to ICT", model + "-04\n", answer + "ICT_PASS", "ICT\n"},
        {"to no level", model + "-05\n", "", ""},
        {"digits that are none", model + "-\xff\xfe\n", "", ""},
        {"a line of 39 bytes", model + "-01" + QByteArray(29, 'x'), t1, "T1 \n"},
        {"a line of 40 bytes", model + "-01" + QByteArray(30, 'x'), fail, "ICT\n"},
        {"another model", "KLV-101-01\n", fail, "ICT\n"},
        {"a shorter name of the family", "KLV-10-01\r\n", t1, "T1 \n"},
        {"a longer name", model + "X-01", fail, "ICT\n"},
        {"no second dash", model + "01xx", fail, "ICT\n"},
        {"shell characters", "KLV-`reboot`;$(id)-01", fail, "ICT\n"},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        const QByteArray answer = row.answer, level = row.level;
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

        QCOMPARE(ict_->all(row.line), answer);
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
}

void TstPcLink::logCaps()
{
    const QString path = AgentPanel::ict(logFile);
    const int warned = 235930, cap = 262144; // bytes: over them, the log says so, or ends
    const QVector<QPair<int, int>> added = {
        {warned - 101, 100}, {warned - 100, 136}, {cap, 136}, {cap + 1, 0}};
    for (const auto &[before, bytes] : added) {
        ict_->sendAndSettle(""); // the record of the last reply is written after it
        QVERIFY(QFile::resize(ict_->panel.hostPath(path), before));
        QCOMPARE(ict_->ask(present), presentReply);
        QTRY_COMPARE(ict_->panel.readFile(path).size(), before + bytes);
        ict_->sendAndSettle("");
        const QByteArray end = ict_->panel.readFile(path).mid(before + 100);
        QCOMPARE(end, bytes > 100 ? QByteArray("File size going to exceed max size\n", 36) : "");
    }
}

void TstPcLink::stationNumbers()
{
    AgentPanel at;
    at.panel.writeFile(at.ict(stationFile), "1F");
    QVERIFY(at.boot("BI"));
    const QByteArray frame = requestFrame("9504", "1F");
    QCOMPARE(at.all(requestFrame("9504", "1E"), frame), QByteArray());
    QCOMPARE(at.all(requestFrame("8A00", "1E"), frame), QByteArray()); // no table has it here
    QCOMPARE(at.ask(frame), frame);
    QCOMPARE(at.ask(requestFrame("9504")), frame); // the reply echoes the code
    QCOMPARE(at.all("KLV-101-01\n", frame), QByteArray("FORCIBLY_GOTO_FAIL"));
    // The exchanges of a shared bus are not logged.
    QCOMPARE(at.panel.readFile(at.ict(logFile)).size(), 100);
    QCOMPARE(at.results("BI"), QByteArray("100000"));
    // Without its number a panel on the bus keeps quiet.
    QVERIFY(QFile::remove(at.panel.hostPath(at.ict(stationFile))));
    QVERIFY(at.ignores(frame));
    QVERIFY(at.panel.isOn());
}

QTEST_GUILESS_MAIN(TstPcLink)
#include "tst_pclink.moc"
