#include "misbehavingpeer.h"
#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/codec.h"
#include "station/link.h"
#include "station/plan.h"
#include "station/protocol.h"
#include "station/runner.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

using Pieces = QList<MisbehavingPeer::Piece>;

namespace {
class SilentStand : public Stand {
public:
    QString act(const QString &action) override
    {
        settled = settled || action.startsWith("settle ");
        return action.startsWith("ask") ? "nobody there" : "";
    }
    bool wantsAgain(const QString &) override
    {
        return again-- > 0;
    }
    int again = 0;
    bool settled = false;
};

Pieces byteByByte(const QByteArray &bytes, int gapMs)
{
    Pieces pieces;
    for (char c : bytes)
        pieces << MisbehavingPeer::Piece{gapMs, QByteArray(1, c)};
    return pieces;
}

// A link to the peer.
struct Wire {
    explicit Wire(const MisbehavingPeer &peer, int level = Ict)
    {
        link.open(peer.path, level);
    }
    Link link;
};
}

class TestStation : public QObject {
    Q_OBJECT
private slots:
    void requests();
    void refusals();
    void badLine();
    void lateAnswerIsNotTakenForTheNext();
    void planProblems();
    void verdicts();
    void reports();
};

// What a panel does not answer must be told from what it does.
void TestStation::refusals()
{
    const struct {
        QByteArray request;
        int level;
        QString why; // empty: answered
    } rows[] = {
        {":0081027D\r\n", T1, ""},
        {":0081027E\r\n", T1, "check digits should be 7D"},
        {":0081027D", T1, "no line end"},
        {":0081027D\r\n", Bi, "not at level BI"},
        {":05850076\r\n", Bi, "for station 5, here is 0"},
        {":058A0071\r\n", T1, ""},
        {":008D30151421110525BE\r\n", T1, ""},
        {":000602AB55\r\n", Ict, ""},
        {":000602AB54\r\n", Ict, "check digits should be 55"},
        {":9510FF8000", T2, ""},
        {"KLV-100-02\r\n", Bi, ""},
        {"GET_TOOL_VER\r\n", Ict, "no panel knows"},
        {"\xff:", Ict, "no panel knows"},
    };
    for (const auto &row : rows) {
        const QString why = refusal(row.request, row.level);
        QVERIFY2(row.why.isEmpty() ? why.isEmpty() : why.startsWith(row.why),
                 row.request + ": " + why.toLatin1());
    }
    QVERIFY(meaningOf("9FF1", "9011").contains("no touched position 1"));
    QCOMPARE(meaningOf("95EF", "9502"), QString("LCM pattern 17 of 20 failed"));
    QVERIFY(meaningOf("85F0", "8500").contains("failed"));
    QVERIFY(meaningOf("8500", "8000").contains("foreign"));
    QCOMPARE(meaningOf("\x1b[2J!\n", "AB00"), QString("panel model \\x1b[2J!"));
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
    QCOMPARE(requestOf("KLV-", "bi", 0, "KLV-100"), QByteArray("KLV-100-02\r\n"));
    QCOMPARE(requestOf("KLV-", "HMI", 0, "KLV-100"), QByteArray("KLV-100-00\r\n"));
    Values values; // as production.json gives them
    addTo(&values, {{"station", 5}, {"semiId", "0S"}});
    QCOMPARE(expand("${station} ${semiId}", values), QString("5 0S"));
}

void TestStation::badLine()
{
    const QByteArray good = ":00800080\r\n";
    const Pieces now{{0, good}}, silence{};
    const struct {
        const char *name;
        Pieces first, second;
        bool framed;
        QByteArray payload;
        int tries;
    } rows[] = {
        {"late", {{200, good}}, silence, true, "8000", 1},
        {"byte by byte, slow", byteByByte(good, 20), silence, true, "8000", 1},
        {"gap in the frame", {{0, good.left(5)}, {150, good.mid(5)}}, silence, true, "8000", 1},
        {"noise, then the frame", {{0, "\xff\xfe\xfd"}, {150, good}}, silence, true, "8000", 1},
        {"silent once", silence, now, true, "8000", 2},
        {"damaged once", {{0, ":00800081\r\n"}}, now, true, "8000", 2},
        {"noise only, then a frame", {{0, "abcdef"}}, now, true, "8000", 2},
        {"silent for good", silence, silence, true, "", 2},
        {"text without line end",
         {{0, "FORCIBLY_GOTO_FAIL"}},
         silence,
         false,
         "FORCIBLY_GOTO_FAIL",
         1},
        {"frame without line feed", {{0, ":000328D5\r"}}, silence, true, "0328", 1},
    };
    for (const auto &row : rows) {
        MisbehavingPeer peer(
            [&](int number, const QByteArray &) { return number == 0 ? row.first : row.second; });
        Wire wire(peer);
        const int patience = row.tries == 1 ? 20000 : 600; // tight only where nothing comes
        Link::Request request{shortRequest(0, "8000"), patience, 2, false, {}, {}};
        request.framed = row.framed;
        const Link::Answer answer = wire.link.exchange(request);
        QVERIFY2(decode(answer.bytes).payload == row.payload, row.name);
        QVERIFY2(answer.tries == row.tries, row.name);
        QVERIFY2(!answer.bytes.isEmpty() || answer.ms >= request.timeoutMs, row.name);
    }
}

// A request repeated because its answer was late brings two answers; the second must not stand for
// the next request.
void TestStation::lateAnswerIsNotTakenForTheNext()
{
    MisbehavingPeer peer([&](int number, const QByteArray &) {
        return number == 0 ? Pieces{}
            : number == 1  ? Pieces{{0, ":0081027D\r\n"}, {50, ":0081027D\r\n"}}
                           : Pieces{{10, ":00850E6D\r\n"}};
    });
    Wire wire(peer);
    const Link::Answer first =
        wire.link.exchange({shortRequest(0, "8102"), 1000, 2, true, false, {}});
    QCOMPARE(first.tries, 2);
    const Link::Answer next =
        wire.link.exchange({shortRequest(0, "8500"), 20000, 1, true, false, {}});
    QCOMPARE(decode(next.bytes).payload, QByteArray("850E"));
}

void TestStation::planProblems()
{
    const QString covered = R"({"item": [2, 3, 4, 5, 6], "code": "8500"}, )";
    const struct {
        const char *name;
        QString steps, problem; // empty: none
    } rows[] = {
        {"sound", covered + R"({"item": 1, "code": "9504", "after": ["look red"]})", ""},
        {"unknown code", covered + "\n" + R"({"item": 1, "name": "?", "code": "9999"})",
         "p.json, step 2 \"?\": no panel knows the code"},
        {"not at this level", covered + "\n" + R"({"item": 1, "name": "RTC", "code": "8C00"})",
         "p.json, step 2 \"RTC\": the code 8C00 is not allowed at level BI"},
        {"silence may be asked anywhere",
         covered + R"({"item": 1, "code": "8C00", "silence": true})", ""},
        {"item left out", covered + R"({"code": "9504"})",
         "no step covers item \"1. LCD Color Test\""},
        {"no such item", covered + R"({"item": [1, 7], "code": "9504"})", "has no item 7"},
        {"mistyped key", covered + R"({"item": 1, "code": "9504", "timout": 5})",
         "unknown key \"timout\""},
        {"unknown action", covered + R"({"item": 1, "code": "9504", "before": ["kick it"]})",
         "unknown action \"kick it\""},
        {"impossible action", covered + R"({"item": 1, "code": "9504", "before": ["look pink"]})",
         "unknown action \"look pink\""},
        {"text for a number", covered + R"({"item": 1, "code": "9504", "timeout": "10000"})",
         "\"timeout\" must be a whole number"},
        {"negative number", covered + R"({"item": 1, "code": "9504", "repeats": -5})",
         "\"repeats\" must be"},
        {"battery the wrong way round",
         covered + R"({"item": [1, 3], "code": "8800", "battery": [3600, 2950]})",
         "the smaller first"},
        {"raw bytes need no code", covered + R"({"item": 1, "raw": "x\r\n", "bytes": ""})", ""},
        {"unknown value", covered + R"({"item": 1, "code": "9504", "reply": "${colour}"})",
         "what ${colour} is"},
        {"forced change to nowhere", covered + R"({"code": "KLV-", "argument": "${to}"})",
         "to ict, t1, bi, t2 or hmi, not to \"BU\""},
        {"broken JSON", covered + "\n\n{", "p.json:4:"},
    };
    for (const auto &row : rows) {
        QTemporaryDir folder;
        QFile file(folder.filePath("p.json"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\"level\": \"BI\",\n\"steps\": [" + row.steps.toUtf8() + "]}");
        file.close();
        const QString found = loadPlan(file.fileName(), {{"to", "BU"}}).problems.join('\n');
        QVERIFY2(row.problem.isEmpty() ? found.isEmpty() : found.contains(row.problem),
                 qPrintable(row.name + (": " + found)));
    }
}

void TestStation::verdicts()
{
    const struct {
        const char *name;
        QByteArray answer;
        QString key; // of the expectation
        QJsonValue wanted;
        QString fault; // empty: passes
    } rows[] = {
        {"as expected", ":05850076\r\n", "reply", "8500", ""},
        {"another code", ":0585F086\r\n", "reply", "8500", "DDR memory: failed (85F0)"},
        {"a pass that is none", ":05850076\r\n", "reply", "85F0",
         "DDR memory: passed (8500), expected DDR memory: failed (85F0)"},
        {"half", ":058500", "reply", "8500", "damaged answer: :058500"},
        {"lower-case check digits", ":05810E6c\r\n", "reply", "810E", "damaged"},
        {"another station", ":06850075\r\n", "reply", "8500", "as station 6 instead of 5"},
        {"noise before", "x:05850076\r\n", "reply", "8500", "bytes before"},
        {"nothing", "", "reply", "8500", "no answer (asked 1 times"},
        {"text with a value", "KLV-100.x\n", "text", "${model}\\n", ""},
        {"text with a zero byte", QByteArray("KLV-100.x\0\n", 11), "text", "${model}",
         "expected KLV-100.x"},
        {"a value is no pattern", "KLV-100-x\n", "text", "${model}\\r\\n",
         "KLV-100-x, expected KLV-100.x"},
        {"no pattern for people", "(1)\n", "text", "\\d+", "expected another form"},
        {"battery enough", ":05029564\r", "battery", QJsonArray{2950, 3600}, ""},
        {"battery low", ":05029465\r", "battery", QJsonArray{2950, 3600},
         "2.94 V, expected 2.95 V to 3.60 V"},
        {"recorded bytes", "a\xff\n", "bytes", "a\u00ff\n", ""},
        {"other bytes", "a\xff\n", "bytes", "a\n", "expected a\\n"},
        {"due silence", "", "silence", true, ""},
        {"broken silence", ":05850076\r\n", "silence", true, "no answer is due"},
    };
    for (const auto &row : rows) {
        MisbehavingPeer peer([&](int, const QByteArray &) { return Pieces{{0, row.answer}}; });
        Wire wire(peer, Bi);
        SilentStand stand;
        const bool whole = row.answer.endsWith('\r') || row.answer.endsWith('\n');
        QJsonObject step{{"code", row.key == "battery" ? "8800" : "8500"},
                         {"timeout", whole ? 20000 : 1000},
                         {"repeats", 0}};
        step[row.key] = row.wanted;
        Runner runner(wire.link, stand, {{"model", "KLV-100.x"}}, {5, {}, true});
        const QString faults = textsOf(runner.runStep(stepOf(step), Bi)["faults"]).join(' ');
        QVERIFY2(row.fault.isEmpty() ? faults.isEmpty() : faults.contains(row.fault),
                 qPrintable(row.name + (": " + faults)));
        QTRY_COMPARE(peer.requests.load(), 1);
    }
}

// One failed operator step must turn every verdict of the report, whatever the link says.
void TestStation::reports()
{
    MisbehavingPeer peer([](int, const QByteArray &request) { return Pieces{{0, request}}; });
    Wire wire(peer);
    SilentStand stand;
    Step step = stepOf({{"name", "<DDR>"}, {"code", "8500"}, {"item", 1}}, {"7. DDR Test"});
    Runner runner(wire.link, stand, {}, {});
    Report report;
    report.begin("T1");
    report.levels[0]["steps"] = QJsonArray{runner.runStep(step, T1)};
    QVERIFY(report.passed());
    step["after"] = QJsonArray{"ask Is it warm?\x1b"};
    report.levels[0]["steps"] = QJsonArray{runner.runStep(step, T1)};
    QVERIFY(!report.passed());
    stand.again = 1; // and what failed before stays known
    step = stepOf({{"code", "8500"}, {"reply", "85F0"}});
    const QJsonObject tried = runner.runStep(step, T1);
    QVERIFY(!tried["passed"].toBool() && tried["earlier"] == tried["faults"]);
    QVERIFY(!stand.settled);
    runner.runStep(stepOf({{"code", "0300"}}), T2); // after which the panel goes on working
    QVERIFY(stand.settled);
    QTemporaryDir folder;
    report.subject = "../port/1";
    const QString base = folder.filePath("a"), begun = beginReport(report, base);
    QCOMPARE(QFileInfo(begun).path(), base + "/port-1");
    QVERIFY(beginReport(report, base) != begun);
    report.given["machineId"] = "../ID 1"; // known only now
    const QString place = writeReport(report, base, begun);
    QCOMPARE(QFileInfo(place).path(), base + "/ID-1");
    QFile file(folder.filePath("file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY_EXCEPTION_THROWN(beginReport(report, file.fileName() + "/a"), BenchError);
    const QString last = writeReport(report, file.fileName(), file.fileName() + "/a/b");
    QVERIFY(QFile::exists(last + "/report.html") && QDir(last).removeRecursively());
    const QList<QPair<QString, QByteArray>> wanted = {{"report.html", "\"passed\":false"},
                                                      {"report.html", "\\u003cDDR>"},
                                                      {"report.html", "nobody there"},
                                                      {"report.json", "\"passed\": false"},
                                                      {"junit.xml", "failures=\"1\""}};
    for (const auto &[name, text] : wanted) {
        QFile file(place + '/' + name);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(file.readAll().contains(text), qPrintable(name + " lacks " + text));
    }
    const QString schema = QFINDTESTDATA("../junit.xsd");
    QCOMPARE(QProcess::execute("xmllint", {"--noout", "--schema", schema, place + "/junit.xml"}),
             0);
}

QTEST_GUILESS_MAIN(TestStation)
#include "tst_station.moc"
