#include "panel/agentpanel.h"

// What a peer can do to the PC link: the agent answers where an answer is due, keeps quiet where
// none is, and goes on.
class TstPcLink : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void badInput_data();
    void badInput();
    void logCaps();

private:
    std::unique_ptr<AgentPanel> ict_; // at ICT, for the tests that need no boot of their own
};

namespace {

const QByteArray present = requestFrame("8000"), presentReply = ":00800080\r\n";
const QByteArray logFile = "FactoryTestLog.txt", levelFile = "HMI_TEST_LEVEL.txt";

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

QTEST_GUILESS_MAIN(TstPcLink)
#include "tst_pclink.moc"
