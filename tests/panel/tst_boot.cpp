#include "mainwindow.h"
#include "panel/agentpanel.h"
#include "panel/files.h"
#include "state/itemrecord.h"
#include "state/teststate.h"

#include <QApplication>

// What the agent makes of its arguments, what runs beside it, and what its end checks look at.
class TstBoot : public QObject {
    Q_OBJECT

private slots:
    void arguments();
    void ramdisk();
    void eachItemCounts();
    void unreadable();
    void talkativeScript();
};

namespace {

// The agent as it is at its end check, again and again, each time with one item not passed, the end
// check itself last. Prints the replies.
int runEndChecks(int argc, char *argv[])
{
    QApplication application(argc, argv);
    MainWindow window;
    for (int missing = 0; missing < TEST_ITEM; ++missing) {
        std::fill(Item_Status, Item_Status + TEST_ITEM, ItemPassed);
        Item_Status[missing] = missing % 2 ? ItemRunning : ItemNotPassed;
        window.levelEndCheck(TEST_ITEM - 1);
        printf("%.7s ", UART_Buffer_ShowOutInfo);
    }
    return 0;
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

// The RAM disk's script runs beside the agent, as its child.
void TstBoot::ramdisk()
{
    AgentPanel at;
    at.panel.toolHangs("create_ramdisk.sh");
    QVERIFY(at.boot("T2"));
    QFile children(QString("/proc/%1/task/%1/children").arg(at.panel.agentPid()));
    QVERIFY(children.open(QIODevice::ReadOnly));
    QTRY_VERIFY(children.seek(0) && children.readAll().count(' ') == 1);
}

void TstBoot::eachItemCounts()
{
    const struct {
        const char *level;
        QByteArray failed;
        int items;
        QByteArray passed;
    } rows[] = {{"ICT", ":0004F0 ", 16, ":000400 "},
                {"T1", ":0001F0 ", 19, ":000100 "},
                {"BI", ":0002F0 ", 6, ":000200 "},
                {"T2", ":0003F0 ", 17, ":000300 "}};
    for (const auto &row : rows) {
        AgentPanel at(running(QCoreApplication::applicationFilePath()));
        at.panel.writeFile(at.ict("HMI_TEST_LEVEL.txt"), row.level);
        at.panel.powerOn({"--end-checks"});
        QCOMPARE(at.panel.waitForExit(DeadlineMs), 0);
        const QByteArray said = at.panel.output(); // at BI of the bus first
        QCOMPARE(said.mid(said.indexOf(':')), row.failed.repeated(row.items - 1) + row.passed);
    }
}

// A level or results that the medium just does not give are not taken for ICT's or for none.
void TstBoot::unreadable()
{
    for (const char *file : {"HMI_TEST_LEVEL.txt", "HMI_T2_TEST_Flag.txt"}) {
        AgentPanel at(failing(AgentPanel::ict(file), "read:error=EIO:when=1"));
        const QByteArray passed = QByteArray("Any Test: 1").leftJustified(62, '\0') + "\r\n";
        at.panel.writeFile(at.ict("HMI_T2_TEST_Flag.txt"), passed.repeated(17));
        at.panel.setLevel("T2");
        at.panel.powerOn();
        QTRY_VERIFY(at.panel.output().contains(QByteArray(file) + ": Input/output error\n"));
        QVERIFY(at.panel.isOn());
        QCOMPARE(at.results("T2"), QByteArray(17, '1'));
        QVERIFY(at.panel.readFile(at.ict("HMI_ICT_TEST_Flag.txt")).isEmpty());
    }
}

// A check beside the boot that prints 400 MB behind its verdict, before anyone asks for it.
void TstBoot::talkativeScript()
{
    AgentPanel at;
    at.panel.toolPrints("check_bk_rootfs.sh", QByteArray(400 << 20, '0'));
    QVERIFY(at.boot("ICT"));
    const QString children = QString("/proc/%1/task/%1/children").arg(at.panel.agentPid());
    QTRY_VERIFY(readWhole(children).isEmpty());
    QCOMPARE(at.ask(requestFrame("8700")), requestFrame("8700"));
    const QByteArray status = readWhole(QString("/proc/%1/status").arg(at.panel.agentPid()));
    const int peak = status.mid(status.indexOf("VmHWM:") + 6).simplified().split(' ')[0].toInt();
    QVERIFY2(peak > 0 && peak < 350 << 10, QByteArray::number(peak) + " KiB");
}

int main(int argc, char *argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "--end-checks") == 0)
        return runEndChecks(argc, argv);
    QCoreApplication application(argc, argv);
    TstBoot test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_boot.moc"
