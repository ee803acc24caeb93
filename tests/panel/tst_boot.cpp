#include "panel/agentpanel.h"
#include "station/codec.h"

// The two ends of a run: what the agent makes of its arguments, of the product application and of
// the machine ID, and what an end check leaves for the next boot.
class TstBoot : public QObject {
    Q_OBJECT

private slots:
    void arguments();
    void order();
    void application();
    void grants();
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

void TstBoot::arguments()
{
    const struct {
        const char *name;
        QStringList arguments;
        bool boots;
        QByteArray printed = ""; // on the debug channel
    } rows[] = {
        {"version", {"GetICTVersion"}, false, "120\n"},
        {"version, with a toolkit's own", {"-style", "windows", "GetICTVersion"}, false, "120\n"},
        {"version in lower case", {"getictversion"}, false},
        {"calibration in lower case", {"hmiappcalibation"}, false},
        {"calibration spelled right", {"HMIAppCalibration"}, false},
        {"no text", {""}, false},
        {"two", {"GetICTVersion", "GetICTVersion"}, true},
        {"only the toolkit's own", {"-style", "windows"}, true},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        VirtualPanel panel;
        panel.powerOn(row.arguments);
        if (row.boots) {
            QTRY_VERIFY(panel.port(Port::ttyO1)->isOpenOnPanel());
            QVERIFY(panel.isOn());
        } else {
            QCOMPARE(panel.waitForExit(DeadlineMs), 0);
            QCOMPARE(panel.errorOutput(), row.printed);
            QVERIFY(panel.calls().isEmpty());
        }
    }
}

void TstBoot::order()
{
    for (const QByteArray level : {"ICT", "T2"}) {
        AgentPanel at;
        at.panel.toolHangs("create_ramdisk.sh"); // it runs beside the agent, as its child
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
        QStringList wanted{"mount_system.sh",
                           "ifconfig eth0 192.168.123.111 netmask 255.255.255.0 up",
                           "HMIApp -platform linuxfb -v"};
        if (level == "ICT")
            wanted += {"date 010100002015", "hwclock -w -u"};
        wanted += {"date", "date +%Y-%m-%d %H:%M:%S", "create_ramdisk.sh"};
        QCOMPARE(calls, wanted);
        QCOMPARE(checksRootfs, level == "ICT");
        QFile children(QString("/proc/%1/task/%1/children").arg(at.panel.agentPid()));
        QVERIFY(children.open(QIODevice::ReadOnly));
        QVERIFY(level == "ICT" || children.readAll().count(' ') == 1);
    }
}

void TstBoot::application()
{
    const QByteArray version = "Version=A.0123\n", fits = "KLV-" + QByteArray(48, 'M') + '\n',
                     tooLong = "Model=KLV-" + QByteArray(49, 'M') + '\n',
                     longVersion = "Version=" + QByteArray(51, 'V') + '\n',
                     noModel = "Get Model or Version Info failed, isModelGet = 0, isVersionGet = ";
    const struct {
        const char *name;
        QByteArray identity, printed;
        QByteArray model; // answer to "AB00"
    } rows[] = {
        {"59 bytes", "noise\nModel=" + fits + "Version=C.7\n", "", fits},
        {"60 bytes", tooLong + version,
         "Get Model info failed, ba = " + tooLong + ", length = 60\n" + noModel + "1\n", ""},
        {"60 bytes of version", "Model=KLV-100\n" + longVersion,
         "Get Version info failed, ba = " + longVersion
             + ", length = 60\nGet Model or Version Info "
               "failed, isModelGet = 1, isVersionGet = 0\n",
         "KLV-100\n"},
        {"no line end", version + "Model=KLV-100", noModel + "1\n", ""},
        {"another family", "Model=XLV-100\n" + version, noModel + "1\n", ""},
        {"none", "", noModel + "0\n", ""},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        AgentPanel at;
        if (row.identity.isEmpty())
            at.panel.toolMissing("HMIApp");
        else
            at.panel.toolPrints("HMIApp", row.identity);
        QVERIFY(at.boot("ICT"));
        QCOMPARE(at.all(requestFrame("AB00")), row.model);
        QCOMPARE(at.panel.output(), row.printed);
        QTRY_COMPARE(at.results("ICT").left(1), QByteArray("1"));
        if (row.model == fits) // a version that fills some of its places
            QCOMPARE(at.ask(requestFrame("FF00")), QByteArray("C.7BBB.120\n"));
    }
}

// Which factory an ID tells of is a matter of its own.
void TstBoot::grants()
{
    const char *const rows[][3] = {{"T1", "12345678W0", "0000000000000101000"},
                                   {"T1", "12345678T0", "0000000000000000000"},
                                   {"BI", "12345678W0", "000000"},
                                   {"BI", "12345678T0", "000010"},
                                   {"BI", "12345678W", "000010"}, // too short
                                   {"BI", "", "000000"}};
    for (const auto &[level, id, results] : rows) {
        AgentPanel at;
        at.panel.writeFile(at.ict("HMI_MACHINE_ID.txt"), id);
        QVERIFY(at.boot(level));
        QTRY_COMPARE(level + at.results(level) + id, QByteArray(level) + results + id);
    }
}

void TstBoot::endChecks()
{
    const struct {
        QByteArray level, request, reply;
        QByteArray next; // level file afterwards; empty: not looked at
        const char *condition = "";
    } rows[] = {
        {"ICT", "0400", "0400", "T1 \n"},
        {"T1", "0100", "0100", "BI \n"},
        {"BI", "0200", "0200", "T2 \n"},
        {"T2", "0300", "0300", "HMI\n"},
        {"T2", "0300", "0300", "HMI\n", "without SRAM"},
        {"T1", "0101", "0101", "HMI\n", "clock compared"},
        {"T1", "0101", "01FF", "T1 \n"},
        {"T1", "0101", "01F0", "T1 \n", "an item failed"},
        {"BI", "0200", "02F0", "BI \n", "an item failed"},
        {"ICT", "0400", "04F0", "", "no level file possible"},
        {"T2", "0300", "03F0", "", "no level file possible"},
    };
    for (const auto &row : rows) {
        qInfo("%s %s", row.reply.constData(), row.condition);
        const QByteArray level = row.level, next = row.next, condition = row.condition;
        const int items =
            QMap<QByteArray, int>{{"ICT", 16}, {"T1", 19}, {"BI", 6}, {"T2", 17}}[level];
        const bool passed = row.reply == row.request, refused = row.reply == "01FF",
                   done = next == "HMI\n";
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
            QCOMPARE(at.ask(clockRequest("8E", now)), requestFrame("8E00"));
            ++records;
        }
        if (condition == "no level file possible")
            QCOMPARE(at.fixture.setFault("unwritable:HMI_TEST_LEVEL.txt"), QString());

        QCOMPARE(at.ask(requestFrame(row.request)), requestFrame(row.reply));
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
        QVERIFY(at.ignores(requestFrame(level == "BI" ? "9504" : "8000")));
    }
}

QTEST_GUILESS_MAIN(TstBoot)
#include "tst_boot.moc"
