#include "misbehavingpeer.h"
#include "station/codec.h"
#include "station/link.h"
#include "station/plan.h"
#include "station/protocol.h"
#include "station/report.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace station;
using Pieces = QList<MisbehavingPeer::Piece>;
Q_DECLARE_METATYPE(Pieces)

namespace {
class SilentStand : public Stand {
public:
    QString port(int) const override
    {
        return {};
    }
    QString act(const QString &verb, const QString &) override
    {
        return verb == "ask" ? "nobody there" : "";
    }
};

Pieces byteByByte(const QByteArray &bytes, int gapMs)
{
    Pieces pieces;
    for (char c : bytes)
        pieces << MisbehavingPeer::Piece{gapMs, QByteArray(1, c)};
    return pieces;
}
}

class TestStation : public QObject {
    Q_OBJECT
private slots:
    void requests();
    void everyByteSurvivesARecord();
    void replies_data();
    void replies();
    void badLine_data();
    void badLine();
    void lateAnswerIsNotTakenForTheNext();
    void planProblems_data();
    void planProblems();
    void verdicts_data();
    void verdicts();
    void reports();
};

void TestStation::everyByteSurvivesARecord()
{
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes += char(i);
    bytes += "\\n\\x41 \\";
    const QByteArray text = printable(bytes).toLatin1();
    QVERIFY(!text.contains('\n') && !text.contains('\t') && !text.contains('\0'));
    QCOMPARE(unprintable(text), bytes);
}

// Check digits worked out by hand: 00+81+02 = 83 -> 7D; 05+8A+00 = 8F -> 71;
// 00+8D+30+15+14+21+11+05+25 = 142 -> BE; the characters of "000602AB" sum to 1AB -> 55.
void TestStation::requests()
{
    QCOMPARE(shortRequest(0, "8102"), QByteArray(":0081027D\r\n"));
    QCOMPARE(shortRequest(5, "8A00"), QByteArray(":058A0071\r\n"));
    QCOMPARE(shortRequest(100, "0200"), QByteArray(":6402009A\r\n"));
    const QDateTime friday({2025, 11, 21}, {14, 15, 30});
    QCOMPARE(clockRequest("8D", friday), QByteArray(":008D30151421110525BE\r\n"));
    QCOMPARE(identityRequest(0, "0602", "AB"), QByteArray(":000602AB55\r\n"));
    QCOMPARE(gotoRequest("KLV-100", wireLevel("BI")), QByteArray("KLV-100-02\r\n"));
}

void TestStation::replies_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("number");
    QTest::addColumn<QByteArray>("payload");
    const auto row = [](const char *name, const QByteArray &bytes, int kind, int number,
                        const char *payload) {
        QTest::newRow(name) << bytes << kind << number << QByteArray(payload);
    };
    row("failure", ":0081F28D\r\n", Reply::Frame, 0, "81F2");
    row("own station", ":0581F288\r\n", Reply::Frame, 5, "81F2");
    row("noise before", "\xff\x01:0081F28D\r\n", Reply::Frame, 0, "81F2");
    row("lower-case check digits", ":0081F28d\r\n", Reply::Damaged, -1, ":0081F28d\r\n");
    row("wrong check digits", ":0081F28E\r\n", Reply::Damaged, -1, ":0081F28E\r\n");
    row("half", ":0081F2", Reply::Damaged, -1, ":0081F2");
    row("battery 3.28 V", ":000328D5\r", Reply::Battery, 0, "0328");
    row("identity", ":000702AB54\r\n", Reply::Identity, 0, "0702AB");
    row("text", "A.1234.120\n", Reply::Text, -1, "A.1234.120\n");
    row("nothing", "", Reply::None, -1, "");
}

void TestStation::replies()
{
    QFETCH(QByteArray, bytes);
    const Reply reply = decode(bytes);
    QTEST(int(reply.kind), "kind");
    QTEST(reply.station, "number");
    QTEST(reply.payload, "payload");
}

void TestStation::badLine_data()
{
    QTest::addColumn<Pieces>("first");
    QTest::addColumn<Pieces>("second");
    QTest::addColumn<bool>("framed");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("tries");
    const QByteArray good = ":00800080\r\n";
    const Pieces now{{0, good}}, silence{};
    const auto row = [](const char *name, Pieces first, Pieces second, bool framed,
                        const char *payload, int tries) {
        QTest::newRow(name) << first << second << framed << QByteArray(payload) << tries;
    };
    row("late", {{200, good}}, silence, true, "8000", 1);
    row("byte by byte, slow", byteByByte(good, 20), silence, true, "8000", 1);
    row("gap inside the frame", {{0, good.left(5)}, {150, good.mid(5)}}, silence, true, "8000", 1);
    row("noise, then the frame", {{0, "\xff\xfe\xfd"}, {150, good}}, silence, true, "8000", 1);
    row("silent once", silence, now, true, "8000", 2);
    row("damaged once", {{0, ":00800081\r\n"}}, now, true, "8000", 2);
    row("noise only, then a frame", {{0, "abcdef"}}, now, true, "8000", 2);
    row("silent for good", silence, silence, true, "", 2);
    row("text without line end", {{0, "FORCIBLY_GOTO"}, {20, "_FAIL"}}, silence, false,
        "FORCIBLY_GOTO_FAIL", 1);
    row("frame without line feed", {{0, ":000328D5\r"}}, silence, true, "0328", 1);
}

void TestStation::badLine()
{
    QFETCH(Pieces, first);
    QFETCH(Pieces, second);
    QFETCH(bool, framed);
    MisbehavingPeer peer(
        [&](int number, const QByteArray &) { return number == 0 ? first : second; });
    Link link;
    QString error;
    QVERIFY2(link.open(peer.path, Link::Mode::Rs232, &error), qPrintable(error));
    Link::Request request{shortRequest(0, "8000"), 400, 2, false, {}, {}};
    request.framed = framed;
    const Link::Answer answer = link.exchange(request);
    QTEST(decode(answer.bytes).payload, "payload");
    QTEST(answer.tries, "tries");
}

// A request repeated because its answer was late brings two answers; the second must not stand for
// the next request.
void TestStation::lateAnswerIsNotTakenForTheNext()
{
    MisbehavingPeer peer([&](int number, const QByteArray &) {
        return number == 0 ? Pieces{{300, ":0081027D\r\n"}}
            : number == 1  ? Pieces{{50, ":0081027D\r\n"}}
                           : Pieces{{10, ":00850E6D\r\n"}};
    });
    Link link;
    QString error;
    QVERIFY(link.open(peer.path, Link::Mode::Rs232, &error));
    const Link::Answer first = link.exchange({shortRequest(0, "8102"), 200, 2, true, false, {}});
    QCOMPARE(first.tries, 2);
    const Link::Answer next = link.exchange({shortRequest(0, "8500"), 500, 1, true, false, {}});
    QCOMPARE(decode(next.bytes).payload, QByteArray("850E"));
    QVERIFY(!link.open("/dev/no-such-port", Link::Mode::Rs232, &error));
    QVERIFY2(error.contains("plugged in"), qPrintable(error));
}

void TestStation::planProblems_data()
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("problem"); // empty: none
    const QString covered = R"({"item": [2, 3, 4, 5, 6], "code": "8500"}, )";
    const auto row = [](const char *name, const QString &steps, const char *problem) {
        QTest::newRow(name) << steps << QString(problem);
    };
    row("sound", covered + R"({"item": 1, "code": "9504", "after": ["look red"]})", "");
    row("unknown code",
        covered
            + "\n"
              R"({"item": 1, "name": "?", "code": "9999"})",
        "p.json:3: \"?\": no panel knows the code");
    row("not at this level",
        covered
            + "\n"
              R"({"item": 1, "name": "RTC", "code": "8C00"})",
        "p.json:3: \"RTC\": the code 8C00 is not allowed at level BI");
    row("silence may be asked anywhere",
        covered + R"({"item": 1, "code": "8C00", "silence": true})", "");
    row("item left out", covered + R"({"code": "9504"})",
        "no step covers item \"1. LCD Color Test\"");
    row("no such item", covered + R"({"item": [1, 7], "code": "9504"})", "has no item 7");
    row("mistyped key", covered + R"({"item": 1, "code": "9504", "timout": 5})",
        "unknown key \"timout\"");
    row("unknown action", covered + R"({"item": 1, "code": "9504", "before": ["kick it"]})",
        "unknown action \"kick it\"");
    row("impossible action", covered + R"({"item": 1, "code": "9504", "before": ["look pink"]})",
        "unknown action \"look pink\"");
    row("unknown value", covered + R"({"item": 1, "code": "9504", "reply": "${colour}"})",
        "what ${colour} is");
    row("broken JSON", covered + "\n\n{", "p.json:4:");
}

void TestStation::planProblems()
{
    QFETCH(QString, steps);
    QFETCH(QString, problem);
    QTemporaryDir folder;
    QFile file(folder.filePath("p.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"level": "BI",)"
               "\n\"steps\": ["
               + steps.toUtf8() + "]}");
    file.close();
    const QString found = loadPlan(file.fileName(), {}).problems.join('\n');
    QVERIFY2(problem.isEmpty() ? found.isEmpty() : found.contains(problem), qPrintable(found));
}

void TestStation::verdicts_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("expect");
    QTest::addColumn<QString>("reply");
    QTest::addColumn<QString>("fault"); // empty: passes
    const auto row = [](const char *name, const QByteArray &answer, int expect, const char *reply,
                        const char *fault) {
        QTest::newRow(name) << answer << expect << QString(reply) << QString(fault);
    };
    row("as expected", ":05850076\r\n", Step::Payload, "8500", "");
    row("another code", ":0585F086\r\n", Step::Payload, "8500", "expected 8500");
    row("another station",
        ":0685"
        "0075\r\n",
        Step::Payload, "8500", "as station 6 instead of 5");
    row("noise before", "x:05850076\r\n", Step::Payload, "8500", "bytes before");
    row("nothing", "", Step::Payload, "8500", "no answer to 1 requests");
    row("text with a value", "KLV-100.x\n", Step::Text, "${model}\\n", "");
    row("text with a zero byte", QByteArray("KLV-100.x\0\n", 11), Step::Text, "${model}",
        "expected the text");
    row("a value is no pattern", "KLV-100-x\n", Step::Text, "${model}\\n", "expected the text");
    row("battery enough",
        ":050295"
        "64\r",
        Step::Battery, "", "");
    row("battery low", ":05029465\r", Step::Battery, "", "expected 2950 to 3600 mV");
    row("due silence", "", Step::Silence, "", "");
    row("broken silence", ":05850076\r\n", Step::Silence, "", "no answer is due");
}

void TestStation::verdicts()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, fault);
    QFETCH(int, expect);
    MisbehavingPeer peer([&](int, const QByteArray &) { return Pieces{{0, answer}}; });
    Link link;
    QString error;
    QVERIFY(link.open(peer.path, Link::Mode::Rs485, &error));
    SilentStand stand;
    Step step;
    step.code = "8500";
    step.expect = Step::Expect(expect);
    QFETCH(QString, reply);
    step.reply = reply;
    step.minimumMv = 2950;
    step.maximumMv = 3600;
    step.timeoutMs = 200;
    step.repeats = 0;
    Runner runner(link, stand, {{"model", "KLV-100.x"}}, 5, {}, true);
    const StepResult result = runner.runStep(step, Bi);
    QVERIFY2(fault.isEmpty() ? result.faults.isEmpty() : result.faults.join(' ').contains(fault),
             qPrintable(result.faults.join(' ')));
    QCOMPARE(peer.requests.load(), 1);
}

// One failed operator step must turn every verdict of the report, whatever the link says.
void TestStation::reports()
{
    MisbehavingPeer peer([](int, const QByteArray &) { return Pieces{{0, ":0085007B\r\n"}}; });
    Link link;
    QString error;
    QVERIFY(link.open(peer.path, Link::Mode::Rs232, &error));
    SilentStand stand;
    Step step;
    step.name = "<DDR>";
    step.code = "8500";
    step.reply = "8500";
    step.items << 1;
    Runner runner(link, stand, {});
    LevelResult level;
    level.level = "T1";
    level.items << "7. DDR Test";
    level.steps << runner.runStep(step, T1);
    Report report;
    report.levels << level;
    QVERIFY(report.passed());
    step.after << "ask Is it warm?";
    report.levels[0].steps << runner.runStep(step, T1);
    QVERIFY(!report.passed());
    QTemporaryDir folder;
    QCOMPARE(writeReport(report, folder.filePath("a/b")), QString());
    const QList<QPair<QString, QByteArray>> wanted = {{"report.html", "FAILED"},
                                                      {"report.html", "&lt;DDR&gt;"},
                                                      {"report.html", "nobody there"},
                                                      {"report.json", "\"passed\": false"},
                                                      {"junit.xml", "failures=\"1\""}};
    for (const auto &[name, text] : wanted) {
        QFile file(folder.filePath("a/b/" + name));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(file.readAll().contains(text), qPrintable(name + " lacks " + text));
    }
}

QTEST_GUILESS_MAIN(TestStation)
#include "tst_station.moc"
