#include "panel/agentpanel.h"

// What the agent makes of its arguments, and what runs beside it.
class TstBoot : public QObject {
    Q_OBJECT

private slots:
    void arguments();
    void ramdisk();
};

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

QTEST_GUILESS_MAIN(TstBoot)
#include "tst_boot.moc"
