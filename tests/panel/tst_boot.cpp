#include "panel/agentpanel.h"
#include "station/codec.h"

// The two ends of a run: what the agent makes of its arguments, of the product application and of
// the machine ID, and what an end check leaves for the next boot.
class TstBoot : public QObject {
    Q_OBJECT

private slots:
    void arguments_data();
    void arguments();
    void order_data();
    void order();
    void application_data();
    void application();
    void grants_data();
    void grants();
    void endChecks_data();
    void endChecks();
};

namespace {

const QString sram = "/dev/OstraHMI_GPMC_RW", resumeLog = "/usr/local/ict/HMI_Factory_Resume.txt";

// A flag file with these results; what the lines say is the agent's own business.
QByteArray flagFile(const QByteArray &results)
{
    QByteArray records;
    for (char result : results)
        records += QByteArray("item: ") + result + QByteArray(55, '\0') + "\r\n";
    return records;
}

QString flagPath(const QByteArray &level)
{
    return AgentPanel::ict("HMI_" + level + "_TEST_Flag.txt");
}

} // namespace

void TstBoot::arguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("boots");
    QTest::addColumn<QByteArray>("printed"); // on the debug channel
    const auto row = [](const char *name, const QStringList &arguments, bool boots,
                        const QByteArray &printed) {
        QTest::newRow(name) << arguments << boots << printed;
    };
    row("version", {"GetICTVersion"}, false, "120\n");
    row("version, with one of the toolkit's own", {"-style", "windows", "GetICTVersion"}, false,
        "120\n");
    row("version in lower case", {"getictversion"}, false, "");
    row("calibration in lower case", {"hmiappcalibation"}, false, "");
    row("calibration spelled right", {"HMIAppCalibration"}, false, "");
    row("no text", {""}, false, "");
    row("two", {"GetICTVersion", "GetICTVersion"}, true, "");
    row("only the toolkit's own", {"-style", "windows"}, true, "");
}

void TstBoot::arguments()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, boots);
    QFETCH(QByteArray, printed);
    VirtualPanel panel;
    panel.powerOn(arguments);
    if (boots) {
        QTRY_VERIFY_WITH_TIMEOUT(panel.port(Port::ttyO1)->isOpenOnPanel(), 20000);
        QVERIFY(panel.isOn());
    } else {
        QCOMPARE(panel.waitForExit(20000), 0);
        QCOMPARE(panel.errorOutput(), printed);
        QVERIFY(panel.calls().isEmpty());
    }
}

void TstBoot::order_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QStringList>("clock");
    QTest::newRow("ICT") << QByteArray("ICT") << QStringList{"date 010100002015", "hwclock -w -u"};
    QTest::newRow("T2") << QByteArray("T2") << QStringList{};
}

void TstBoot::order()
{
    QFETCH(QByteArray, level);
    QFETCH(QStringList, clock);
    AgentPanel at;
    QVERIFY(at.boot(level));
    QStringList calls;
    bool checksRootfs = false;
    const auto look = [&] {
        calls.clear();
        for (const ToolCall &call : at.panel.calls()) {
            checksRootfs |= call.tool == "check_bk_rootfs.sh"; // beside the rest, at any place
            if (call.tool != "check_bk_rootfs.sh")
                calls += call.line();
        }
        return calls.contains("create_ramdisk.sh");
    };
    QTRY_VERIFY(look());
    QCOMPARE(
        calls,
        QStringList({"mount_system.sh", "ifconfig eth0 192.168.123.111 netmask 255.255.255.0 up",
                     "HMIApp -platform linuxfb -v"})
            + clock + QStringList({"date", "date +%Y-%m-%d %H:%M:%S", "create_ramdisk.sh"}));
    QCOMPARE(checksRootfs, level == "ICT");
}

void TstBoot::application_data()
{
    QTest::addColumn<QByteArray>("identity");
    QTest::addColumn<QByteArray>("printed");
    QTest::addColumn<QByteArray>("model"); // answer to "AB00"
    const QByteArray version = "Version=A.0123\n", both = "Get Model or Version Info failed, ",
                     fits = "Model=KLV-" + QByteArray(48, 'M') + '\n';
    const QByteArray tooLong = "Model=KLV-" + QByteArray(49, 'M') + '\n';
    QTest::newRow("59 bytes") << "noise\n" + fits + version << QByteArray() << fits.mid(6);
    QTest::newRow("60 bytes") << tooLong + version
                              << "Get Model info failed, ba = " + tooLong + ", length = 60\n" + both
            + "isModelGet = 0, isVersionGet = 1\n"
                              << QByteArray();
    QTest::newRow("60 bytes of version")
        << "Model=KLV-100\nVersion=" + QByteArray(51, 'V') + '\n'
        << "Get Version info failed, ba = Version=" + QByteArray(51, 'V') + "\n, length = 60\n"
            + both + "isModelGet = 1, isVersionGet = 0\n"
        << QByteArray("KLV-100\n");
    QTest::newRow("no line end") << version + "Model=KLV-100"
                                 << both + "isModelGet = 0, isVersionGet = 1\n"
                                 << QByteArray();
    QTest::newRow("another family")
        << "Model=XLV-100\n" + version << both + "isModelGet = 0, isVersionGet = 1\n"
        << QByteArray();
    QTest::newRow("none") << QByteArray() << both + "isModelGet = 0, isVersionGet = 0\n"
                          << QByteArray();
}

void TstBoot::application()
{
    QFETCH(QByteArray, identity);
    QFETCH(QByteArray, printed);
    QFETCH(QByteArray, model);
    AgentPanel at;
    if (identity.isEmpty())
        at.panel.toolMissing("HMIApp");
    else
        at.panel.toolPrints("HMIApp", identity);
    QVERIFY(at.boot("ICT"));
    QCOMPARE(at.panel.output(), printed);
    QCOMPARE(at.ask(requestFrame("AB00"), model.size() + 1, 400), model);
    QTRY_COMPARE(at.results("ICT").left(1), QByteArray("1"));
}

void TstBoot::grants_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QByteArray>("results");
    const auto row = [](const char *name, const char *level, const char *id, const char *results) {
        QTest::newRow(name) << QByteArray(level) << QByteArray(id) << QByteArray(results);
    };
    row("T1, factory W", "T1", "12345678W0", "0000000000000101000");
    row("T1, factory W, 18 characters", "T1", "123456789W12345678", "0000000000000101000");
    row("T1, W in the wrong place", "T1", "123456789W1234567", "0000000000000000000");
    row("T1, factory T", "T1", "12345678T0", "0000000000000000000");
    row("BI, factory W", "BI", "12345678W0", "000000");
    row("BI, factory T", "BI", "12345678T0", "000010");
    row("BI, too short an ID", "BI", "12345678W", "000010");
    row("BI, empty ID", "BI", "", "000000");
}

void TstBoot::grants()
{
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, id);
    QFETCH(QByteArray, results);
    AgentPanel at;
    at.panel.writeFile(at.ict("HMI_MACHINE_ID.txt"), id);
    QVERIFY(at.boot(level));
    QCOMPARE(at.results(level), results);
}

void TstBoot::endChecks_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("next"); // level file afterwards
    QTest::addColumn<QByteArray>("condition");
    const auto row = [](const char *level, const char *request, const char *reply, const char *next,
                        const char *condition = "") {
        QTest::addRow("%s %s %s", request, reply, condition)
            << QByteArray(level) << QByteArray(request) << QByteArray(reply) << QByteArray(next)
            << QByteArray(condition);
    };
    row("ICT", "0400", "0400", "T1 \n");
    row("T1", "0100", "0100", "BI \n");
    row("BI", "0200", "0200", "T2 \n");
    row("T2", "0300", "0300", "HMI\n");
    row("T2", "0300", "0300", "HMI\n", "without SRAM");
    row("T1", "0101", "0101", "HMI\n", "clock compared");
    row("T1", "0101", "01FF", "T1 \n");
    row("T1", "0101", "01F0", "T1 \n", "an item failed");
    row("BI", "0200", "02F0", "BI \n", "an item failed");
    row("ICT", "0400", "04F0", "", "no level file possible");
    row("T2", "0300", "03F0", "", "no level file possible");
}

void TstBoot::endChecks()
{
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, next);
    QFETCH(QByteArray, condition);
    const int items = QMap<QByteArray, int>{{"ICT", 16}, {"T1", 19}, {"BI", 6}, {"T2", 17}}[level];
    const bool passed = reply == request, refused = reply == "01FF", done = next == "HMI\n";
    const QByteArray nextLevel = next.left(3).trimmed();
    AgentPanel at;
    VirtualPanel &panel = at.panel;

    QByteArray results = QByteArray(items - 1, '1') + 'F';
    if (condition == "an item failed")
        results[items - 2] = 'F';
    panel.writeFile(flagPath(level), flagFile(results));
    if (passed && !done)
        panel.writeFile(flagPath(nextLevel), "old results");
    QVERIFY(at.boot(level));
    const QByteArray before = panel.readFile(resumeLog), pattern(32768, 'x');
    QFile memory(panel.hostPath(sram));
    QVERIFY(memory.open(QIODevice::ReadWrite) && memory.write(pattern) == pattern.size()
            && memory.flush());
    panel.setPresent(sram, condition != "without SRAM");
    int records = level == "BI" ? 1 : 3; // boot, reply, end check
    if (condition == "clock compared") {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QCOMPARE(at.ask(station::clockRequest("8E", now)), requestFrame("8E00"));
        ++records;
    }
    if (condition == "no level file possible")
        QCOMPARE(at.fixture.setFault("unwritable:HMI_TEST_LEVEL.txt"), QString());

    QCOMPARE(at.ask(requestFrame(request)), requestFrame(reply));
    const QString log = at.ict("FactoryTestLog.txt");
    QTRY_COMPARE(panel.readFile(log).size(), 100 * (refused ? records - 1 : records));
    results[items - 1] = passed ? '1' : 'F';
    QTRY_COMPARE(panel.readFile(flagPath(level)), flagFile(results));
    if (!next.isEmpty())
        QCOMPARE(panel.readFile(at.ict("HMI_TEST_LEVEL.txt")), next);
    if (passed && !done)
        QVERIFY(!QFile::exists(panel.hostPath(flagPath(nextLevel))));

    // What people read: date, results, and the end; of a refusal nothing.
    const QByteArray end = "===================== Test End =====================\n";
    const auto added = [&] { return panel.readFile(resumeLog).mid(before.size()); };
    if (!refused)
        QTRY_VERIFY2(added().endsWith(flagFile(results) + end), added());
    QCOMPARE(added().isEmpty(), refused);
    QCOMPARE(added().count("And Clear All SRAM Data Pass!!!\n"),
             done && condition != "without SRAM" ? 1 : 0);
    QCOMPARE(added().count("But Clear All SRAM Data Fail!!!\n"),
             condition == "without SRAM" ? 1 : 0);
    memory.seek(0);
    QCOMPARE(memory.readAll(),
             done && condition != "without SRAM" ? QByteArray(32768, '\0') : pattern);

    // No further request is taken in any case.
    QCOMPARE(at.ask(requestFrame(level == "BI" ? "9504" : "8000"), 1, 300), QByteArray());
}

QTEST_GUILESS_MAIN(TstBoot)
#include "tst_boot.moc"
