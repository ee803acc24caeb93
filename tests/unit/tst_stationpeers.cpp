#include "misbehavingpeer.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using Pieces = QList<MisbehavingPeer::Piece>;

// Whatever stands at the other end of the line, and whatever happens to disk and plan meanwhile,
// `bench station` ends with a verdict and a reason, and asks nobody about a panel that is not
// there.
class TestStationPeers : public QObject {
    Q_OBJECT
private slots:
    void verdictAndReason();
    void planAndDiskMeanwhile();
    void typedEarly();
    void untestedOnBus();
    void send();
    void slips();

private:
    void writePlan(const QByteArray &text);
    QByteArray test(const MisbehavingPeer::Answer &answer, bool asked, int *status,
                    const QByteArray &limit = {});

    QTemporaryDir folder_;
    const QString plan_ = folder_.filePath("plan.json");
};

static const QByteArray plan = R"({"level": "T1", "partial": true, "steps": [
    {"name": "one", "code": "8000", "timeout": 600},
    {"name": "two", "code": "8500", "timeout": 600, "after": ["look red"]},
    {"name": "three", "code": "9003", "timeout": 600}]})";

// What a right panel answers to the requests of the plan.
static QByteArray echo(const QByteArray &request)
{
    return request.mid(request.lastIndexOf(':'));
}

static Pieces correct(int, const QByteArray &request)
{
    return {{0, echo(request)}};
}
static Pieces dead(int, const QByteArray &)
{
    return {};
}
static Pieces dying(int turn, const QByteArray &request)
{
    return turn ? Pieces{} : correct(turn, request);
}
static Pieces late(int turn, const QByteArray &request)
{
    return {{turn ? 0 : 900, echo(request)}};
}
static Pieces twofold(int, const QByteArray &request)
{
    return {{0, echo(request) + echo(request)}}; // in one write: they arrive together
}
static Pieces half(int, const QByteArray &request)
{
    return {{0, echo(request).left(5)}};
}
static Pieces endlessGarbage(int, const QByteArray &)
{
    Pieces pieces;
    for (int i = 0; i < 200; ++i)
        pieces << MisbehavingPeer::Piece{5, QByteArray(200, char(i))};
    return pieces;
}
static Pieces pulledOut(int turn, const QByteArray &request)
{
    return turn ? Pieces{{-1, {}}} : correct(turn, request);
}

static const struct {
    const char *name;
    Pieces (*answer)(int turn, const QByteArray &request);
    int status;
    QByteArray reason; // said; begins with "!" when nobody may be asked
} peers[] = {
    {"right", correct, 0, "PASSED"},
    {"dead", dead, 1, "!nothing was heard"},
    {"dies", dying, 1, "!stopped answering"},
    {"late", late, 0, "PASSED"},
    {"twice", twofold, 0, "PASSED"},
    {"half", half, 1, "damaged answer: :0080"},
    {"garbage without end", endlessGarbage, 1, "FAIL"},
    {"pulled out", pulledOut, 1, "!is the adapter still plugged in"},
};

static QByteArray run(const QStringList &arguments, int *status, const QByteArray &limit = {})
{
    QProcess bench;
    bench.setProcessChannelMode(QProcess::MergedChannels);
    bench.start("/bin/sh",
                QStringList{"-c", limit + " exec \"$0\" \"$@\"", QT_TESTCASE_BUILDDIR "/bench"}
                    + arguments);
    bench.closeWriteChannel(); // there is nobody to ask
    *status = bench.waitForFinished(60000) && bench.exitStatus() == QProcess::NormalExit
        ? bench.exitCode()
        : -1;
    return bench.readAll();
}

void TestStationPeers::writePlan(const QByteArray &text)
{
    QFile out(plan_);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(text) == text.size());
}

QByteArray TestStationPeers::test(const MisbehavingPeer::Answer &answer, bool asked, int *status,
                                  const QByteArray &limit)
{
    writePlan(plan);
    MisbehavingPeer peer(answer);
    return run(QStringList{"station", "--port", peer.path, "--plan", plan_, "--report",
                           folder_.filePath("out")}
                   + (asked ? QStringList{"--yes"} : QStringList()),
               status, limit);
}

void TestStationPeers::verdictAndReason()
{
    int status = 0;
    for (const auto &row : peers) {
        const bool asked = !row.reason.startsWith('!');
        const QByteArray said = test(row.answer, asked, &status);
        QVERIFY2(status == row.status && said.contains(row.reason.mid(!asked)),
                 QByteArray(row.name) + ": " + said);
        QVERIFY2(asked || !said.contains(">>"), said);
        QVERIFY2(said.contains("PASSED") || said.contains("FAILED"), said);
    }
    QFile own(folder_.filePath("actions.json")); // asked in the line's own words
    QVERIFY(own.open(QIODevice::WriteOnly));
    own.write("{\"actions\": [{\"action\": \"look red\", \"ask\": \"Ist er rot?\"}]}");
    own.close();
    QVERIFY(test(correct, true, &status).contains("Ist er rot?"));
    // No port, no test: the unit's history has none.
    const QString line = folder_.filePath("line");
    run({"station", "--port", "no/such", "--plan", plan_, "--report", line, "--yes"}, &status);
    QVERIFY(status == 2 && QFile::exists(line) && !QFile::exists(line + "/units.sqlite"));
}

void TestStationPeers::planAndDiskMeanwhile()
{
    int status = 0;
    const auto spoil = [this](int turn, const QByteArray &request) {
        writePlan("{");
        return correct(turn, request);
    };
    QVERIFY(test(spoil, true, &status).contains("PASSED"));
    QCOMPARE(status, 0);
    // Room for the report that is written at the beginning, not for what has come to it.
    const qint64 page = QFileInfo(QFINDTESTDATA("../../bench/report/page.html")).size();
    const QByteArray said =
        test(correct, true, &status,
             QString("trap '' XFSZ; ulimit -f %1;").arg(page / 512 + 3).toLatin1());
    QVERIFY2(status == 2 && said.contains("report.html: File too large"), said);
    QVERIFY2(said.contains("PASSED"), said);
}

// Of a question that nobody has seen yet, no Enter is the answer; nor is a slip a yes.
void TestStationPeers::typedEarly()
{
    writePlan(plan);
    int master, slave;
    char name[64];
    QCOMPARE(openpty(&master, &slave, name, nullptr, nullptr), 0);
    MisbehavingPeer peer(correct);
    QProcess bench;
    QByteArray said;
    const auto answer = [&](const char *question, const QByteArray &typed) {
        while (!said.contains(question) && bench.waitForReadyRead(60000))
            said += bench.readAllStandardOutput();
        return write(master, typed, size_t(typed.size())) == typed.size();
    };
    QVERIFY(answer("", "\n"));
    bench.start("/bin/sh",
                {"-c", QString("exec \"$0\" \"$@\" <") + name, QT_TESTCASE_BUILDDIR "/bench",
                 "station", "--port", peer.path, "--plan", plan_, "--report",
                 folder_.filePath("early")});
    QVERIFY(answer("Enter = yes", "b\n") && answer("   [Enter = yes", " no\n"));
    QVERIFY(answer("Enter = go on", "\n"));
    QVERIFY(bench.waitForFinished(60000));
    QVERIFY2(bench.exitCode() == 1 && said.contains("not confirmed"), said);
    close(master);
    close(slave);
}

// Panels of a bus that were asked nothing have no test in their history.
void TestStationPeers::untestedOnBus()
{
    writePlan(QByteArray(plan).replace("T1", "BI").replace("8000", "8500").replace("600", "60000"));
    for (const bool pulled : {true, false}) { // at the second panel's first step
        const QString out = folder_.filePath(pulled ? "pulled" : "stopped");
        MisbehavingPeer peer([pulled](int turn, const QByteArray &request) {
            if (turn < 3)
                return correct(turn, request);
            return pulled ? Pieces{{-1, {}}} : Pieces{};
        });
        QProcess bench;
        bench.start(QT_TESTCASE_BUILDDIR "/bench",
                    {"station", "--port", peer.path, "--plan", plan_, "--station", "1,2,3",
                     "--report", out, "--yes"});
        QTRY_COMPARE_WITH_TIMEOUT(peer.requests.load(), 4, 60000);
        if (!pulled)
            bench.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(bench.state(), QProcess::NotRunning, 60000);
        int status = 0;
        const QByteArray tests = run({"units", "--csv", "tests", "--report", out}, &status);
        QVERIFY2(tests.count('\n') == (pulled ? 3 : 2), tests); // titles, and those tested
        run({"units", "--csv", "tests", "--report", out}, &status, "exec >/dev/full;");
        QCOMPARE(status, 2); // nothing half passes for the table
        QCOMPARE(peer.requests.load(), 4);
    }
}

void TestStationPeers::send()
{
    int status = 0;
    {
        MisbehavingPeer peer([](int, const QByteArray &) { return Pieces{{-1, {}}}; });
        const QByteArray said = run({"send", "--port", peer.path, "8000"}, &status);
        QVERIFY2(status == 2 && said.contains("plugged in"), said);
    }
    MisbehavingPeer peer([](int, const QByteArray &) { return Pieces{{0, ":00"}}; });
    const struct {
        const char *name;
        QByteArray answer;
        QStringList words;
        int status;
    } rows[] = {
        {"pass", ":00800080\r\n", {"8000"}, 0},
        {"failure", ":0080F090\r\n", {"8000"}, 1},
        {"text for a frame", "U-Boot 2013\n", {"8000"}, 1},
        {"text for a voltage", "U-Boot 2013\n", {"8800"}, 1},
        {"text where one is due", "KLV-100\n", {"AB00"}, 0},
        {"voltage", ":0002807E\r", {"8800"}, 0},
        {"voltage at BI, where only a low one is sent", ":0002807E\r", {"8800", "--bi"}, 1},
        {"good battery at BI", ":00029569\r\n", {"8800", "--bi"}, 0},
        {"no position", ":009FF170\r\n", {"9011"}, 1},
    };
    for (const auto &row : rows) {
        MisbehavingPeer panel([&](int, const QByteArray &) { return Pieces{{0, row.answer}}; });
        const QByteArray said = run(
            QStringList{"send", "--port", panel.path, "--timeout", row.status ? "1000" : "20000"}
                + row.words,
            &status);
        QVERIFY2(status == row.status, row.name + QByteArray(": ") + said);
    }
    for (const QByteArray &path : {peer.path, peer.path.mid(qstrlen("/dev/pts/"))}) {
        const QByteArray said = run({"send", "--port", path, "--timeout", "300", "8000"}, &status);
        QVERIFY2(status == 1 && said.contains("damaged"), said);
    }
    for (const char *level : {"", "T3"}) { // what is no level would release the panel
        MisbehavingPeer panel([](int, const QByteArray &) { return Pieces{{0, "x"}}; });
        const QByteArray said =
            run({"send", "--port", panel.path, "--model", "KLV-100", "KLV-", level}, &status);
        QVERIFY2(status == 2 && said.contains("t2 or hmi") && !panel.requests, said);
    }
    const QByteArray said = run({"send", "--port", "no/such", "8000"}, &status);
    QVERIFY2(status == 2 && said.contains("no/such: no such device"), said);
}

// Slips that would otherwise show only when a panel is tested with the wrong thing, or nothing is.
void TestStationPeers::slips()
{
    QTemporaryDir folder;
    const auto write = [&](const char *name, const QByteArray &text) {
        QFile file(folder.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    };
    QVERIFY(write("t1.json", plan) && write("production.json", "{\"panel\": [{}]}"));
    QVERIFY(QDir(folder.path()).mkdir("b") && write("b/units.sqlite", "?"));
    const QStringList check{"station", "--check", "--plans", folder.path(), "--level", "t1"};
    const QStringList two = check + QStringList{"--port", "a", "--port", "b"};
    const struct {
        QStringList arguments;
        int status;
        QByteArray text;
    } rows[] = {
        {check, 0, "may run"},
        {check + QStringList{"--plan", folder.filePath("t1.json"), "--level", "bi"}, 2,
         "is a plan of level T1, not of BI"},
        {check + QStringList{"--station", "256"}, 2, "0 to 255"},
        {check + QStringList{"--station", "1,x"}, 2, "0 to 255"},
        {check + QStringList{"--set", "modle=KLV-100"}, 2, "no step uses it"},
        {check + QStringList{"--set", "model=a,b,c"}, 2, "one for each of the 1 panels"},
        {two + QStringList{"--station", "1,2", "--set", "model=a,b"}, 0, "may run"},
        {two + QStringList{"--station", "1,2,3"}, 2, "one for each --port"},
        {check + QStringList{"--port", "a", "--port", "a"}, 2, "each port once"},
        {{"produce", "--plans", folder.path()}, 2, "production.json: \"panels\""},
        {{"produce", "--report", ""}, 2, "not an empty text"},
        {{"units", "--report", folder.filePath("a")}, 2, folder.filePath("b").toUtf8()},
        {{"units", "--store", folder.filePath("s"), "--hand-in", "none"}, 2, "no such file"},
        {{"units", "--report", folder.filePath("r"), "--hand-in"}, 2, "no such folder"},
        {{"units", "a", "b"}, 2, "one ID"},
        {{"effects"}, 2, "say which requests"},
        {{"effects", "--compare", folder.filePath("b/units.sqlite")}, 2, ":1: a line before"},
        {{"measure", "--request", "3"}, 2, "See --help"},
        {{"send", "--port"}, 2, "See --help"},
        {{"soak", "panels", "8"}, 2, "\"panels\" is no option"},
        {{"send", "--help"}, 0, "CODE"},
        {{"drive", "--folder"}, 2, "See --help"},
        {{"drive", "--help"}, 0, " calibrate calibrate3 check "},
        {{"board", "--cuts", "fifty"}, 2, "--cuts takes numbers from 1"},
    };
    for (const auto &row : rows) {
        int status = 0;
        const QByteArray said = run(row.arguments, &status);
        QVERIFY2(status == row.status && said.contains(row.text), said);
    }
}

QTEST_GUILESS_MAIN(TestStationPeers)
#include "tst_stationpeers.moc"
