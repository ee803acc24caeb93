#include "panel/agentpanel.h"
#include "station/codec.h"

#include <QMap>

// Every way in which fixture or panel can be out of order, against the reply that it must cause:
// the item at fault fails with its code, every other item stays as it was, and once the fault is
// gone the item passes. The waits that the tests prescribe add up to minutes, so panels are tested
// side by side.
class TstFaultMatrix : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void fault_data();
    void fault();
    void faultTexts_data();
    void faultTexts();

private:
    QMap<QString, QString> outcome_; // by row; empty for as it must be
};

namespace {

// Item numbers count from 1, 0 for none; results as in the flag file.
struct Row {
    const char *request; // a code, or what Lane::requestOf() makes of it
    const char *fault; // "" for none: then the first reply is due to the fixture or panel as it is
    const char *bad,
        *good; // replies: four digits as a frame, all else as it stands; null: not asked
    int item;
    char badResult = 'F';
    const char *kind = ""; // fault that is no fault here: the fixture is of that kind

    QString name(const QString &lane) const
    {
        return QString("%1 %2 %3 %4").arg(lane, request, fault, kind).simplified();
    }
};

// Panels: how each starts, and what it goes through in this order. With `cycle` each fault is set
// before a power-on and cleared before the next.
struct Series {
    const char *name, *level;
    bool cycle;
    QVector<Row> rows;
};

const char semiId[] = "SEMI25110001", machineId[] = "20254711T12345678",
           numberedId[] = "20254711W12345607"; // its factory numbers the panels in the ID

const QVector<Series> &allSeries()
{
    static const QVector<Series> series = {
        {"ICT",
         "ICT",
         false,
         {
             {"AB00", "", nullptr, "KLV-100\n", 1},
             {"AA00", "nand-crc:DEADBEEF", "DEADBEEF\n", "D8B172D0\n", 2, '1'},
             {"FF00", "", nullptr, "A.0123.120\n", 3},
             {"8000", "", nullptr, "8000", 4},
             {"8102", "com1-485:silent", "81F2", "8102", 5, 'F', "bus-echo"},
             {"8102", "com1-485:wrong", "81F2", "8102", 5, 'F', "bus-echo"},
             {"8102", "", "81F2", nullptr, 5}, // the answer passes for the echo
             {"8107", "com2-422:open", "81F7", "8107", 6},
             {"8107", "com2-422:wrong", "81F7", "8107", 6},
             {"8107", "com2-485:open", "81F3", "8107", 6},
             {"8107", "com2-485:wrong", "81F3", "8107", 6},
             {"810A", "com1-485:silent", "81F2", "810A", 5},
             {"810A", "com2-422:open", "81F7", "810A", 6},
             {"810A", "com2-485:open", "81F3", "810A", 0, 0},
             {"810A", "bus-echo", "81F2", "810A", 5},
             {"FF01", "tool", "ToolVer=0.00\r\n", "ToolVer=1.23\r\n", 0, 0},
             {"FF01", "bus-echo", "GET_TOOL_VER\r\n", nullptr, 0},
             {"8500", "ddr", "85F0", "8500", 7},
             {"8500", "ddr:0000000", "85F0", "8500", 7},
             {"8500", "ddr:silent", "85F0", "8500", 7},
             {"8500", "script:chk_ddr.sh=missing", "85F0", "8500", 7},
             {"9503", "lcm:1", "95E7", nullptr, 8},
             {"9503", "lcm:2", "95E6", nullptr, 8},
             {"9503", "script:fast_lcd_circuit_test_pattern.sh=missing", "95E7", "9503", 8},
             {"9509", "lcm:2", "95E6", nullptr, 8},
             {"9509", "script:lcd_circuit_test_init.sh=missing", "95E7", "9509", 8},
             {"9202", "microphone:noise", "92F3", "9202", 9},
             {"0602", "unwritable:HMI_SEMIMACHINE_ID.txt", "06F2", "0602", 10},
             {"0702", "lost:HMI_SEMIMACHINE_ID.txt", "07F2", "ID", 0},
             {"9002", "touch:shift=40", "( 440, 240)\r\n", "( 400, 240)\r\n", 11, '1'},
             {"8C00", "rtc:+2", "8CF0", "8C00", 12},
             {"A200", "usb:unplugged", "A2F0", "A200", 13},
             {"A200", "usb:other", "A2F0", "A200", 13},
             {"8800", "battery:2900", ":0002906E\r", ":000309F4\r", 14, '1'},
             {"8700", "", nullptr, "8700", 15},
             {"8700", "rootfs:1", "8700", nullptr, 15, '1'}, // once is enough
             {"CC10", "stick", "CCE0", "CC10", 0},
             {"CC11", "sd", "CCE1", "CC11", 0},
             {"CC00", "stick", "CCF0", "CC00", 0},
             {"CC00", "archive", "CCF0", "CC00", 0},
             {"CC01", "sd", "CCF1", "CC01", 0},
             {"CC01", "archive", "CCF1", "CC01", 0},
             {"0400", "", nullptr, "0400", 16},
         }},
        {"T1",
         "T1",
         false,
         {
             {"9504", "", nullptr, "9504", 8},
             {"9301", "backlight", "9301 at 100 %", "9301 at 0 %", 9, '1'},
             {"9202", "microphone:deaf", "92F2", "9202", 10},
             {"0601", "unwritable:HMI_MACHINE_ID.txt", "06F1", "0601", 11},
             {"0701", "lost:HMI_MACHINE_ID.txt", "07F1", "ID", 17},
             {"A200", "usb:unplugged", "A2F0", "A200", 14},
             {"8800", "battery:3287", ":000328D5\r", ":000309F4\r", 15, '1'},
             {"058A00", "unwritable:HMI_STATION_NUM.txt", "8AF0", ":058A0071\r\n", 16, 0},
             // From here on the items that such an ID grants have passed already.
             {"W0601", "unwritable:HMI_STATION_NUM.txt", "06F1", "0601", 11},
             {"9003", "touch-pressure:37", "90F3", "9003", 18},
             {"9011", "lost:T1_TP_Value.txt", "9FF1", "line 1\r\n", 0},
             {"9012", "lost:T1_TP_Value.txt", "9FF2", "line 2\r\n", 0},
             {"9013", "lost:T1_TP_Value.txt", "9FF3", "line 3\r\n", 0},
             {"9014", "lost:T1_TP_Value.txt", "9FF4", "line 4\r\n", 0},
             {"9015", "lost:T1_TP_Value.txt", "9FF5", "line 5\r\n", 0},
             {"9021", "lost:T1_TP_Value.txt", "9FE1", "line 6\r\n", 0},
             {"9022", "lost:T1_TP_Value.txt", "9FE2", "line 7\r\n", 0},
             {"9023", "lost:T1_TP_Value.txt", "9FE3", "line 8\r\n", 0},
             {"9024", "lost:T1_TP_Value.txt", "9FE4", "line 9\r\n", 0},
             {"9025", "lost:T1_TP_Value.txt", "9FE5", "line 10\r\n", 0},
             {"8E", "rtc:+200", "8EF0", "8E00", 0},
             {"8D", "rtc:+200", "8DF0", "8D00", 13},
             {"8E", "", "86FF", nullptr, 0}, // not before the next power-on
             {"0100", "", "01F0", nullptr, 19}, // the touch panel was not calibrated
         }},
        {"BI",
         "BI",
         false,
         {
             {"9507", "", nullptr, "9507", 1},
             {"8500", "ddr", "85F0", "8500", 2},
             {"8800", "battery:2949", ":0002946A\r", "0295", 3},
             {"8800", "battery:2952", "0295", nullptr, 3, '1'},
             {"9003", "touch-pressure:1", "90F3", "9003", 4},
             {"A200", "usb:other", "A2F0", "A200", 5},
             {"CC10", "stick", "CCE0", "CC10", 0},
             {"0200", "", nullptr, "0200", 6},
         }},
        {"T2",
         "T2",
         false,
         {
             {"8E", "rtc:+200", "8EF0", "8E00", 12},
             {"A200", "usb:unplugged", "A2F0", "A200", 13},
             {"8800", "battery:2900", ":0002906E\r", ":000309F4\r", 14, '1'},
             {"0701", "lost:HMI_MACHINE_ID.txt", "07F1", "ID", 15},
             {"9003", "touch-pressure:37", "90F3", "9003", 16},
             {"0603", "lost:HMI_SEMIMACHINE_ID.txt", "06F3", "0603", 0},
             {"9021", "lost:T2_TP_Value.txt", "9FE1", "line 1\r\n", 0},
             {"9025", "lost:T2_TP_Value.txt", "9FE5", "line 5\r\n", 0},
             {"0300", "", "03F0", nullptr, 17},
         }},
        {"power-on",
         "ICT",
         true,
         {
             {"8700", "rootfs:1", "87F1", nullptr, 15},
             {"8700", "rootfs:2", "87F2", nullptr, 15},
             {"8700", "rootfs:3", "87F0", nullptr, 15},
             {"8700", "rootfs:silent", "87F0", "8700", 15},
             {"AB00", "model:KLV-999", "KLV-999\n", "KLV-100\n", 1, '1'},
             {"FF00", "version:A.9999", "A.9999.120\n", "A.0123.120\n", 3, '1'},
             {"0400", "", "04F0", nullptr, 16},
         }},
        {"display",
         "ICT",
         false,
         {
             {"9502", "lcm:1", "95FF", nullptr, 8},
             {"9502", "lcm:16", "95F0", nullptr, 8},
             {"9502", "lcm:17", "95EF", nullptr, 8},
             {"9502", "lcm:20", "95EC", "9502", 8},
         }},
        {"display over I2C",
         "ICT",
         false,
         {
             {"9508", "script:lcd_circuit_test_pattern.sh=missing", "95FF", nullptr, 8},
             {"9508", "lcm:17", "95EF", nullptr, 8},
             {"9508", "lcm:20", "95EC", "9508", 8},
         }},
        {"buzzer",
         "ICT",
         false,
         {
             {"9201", "microphone:deaf", "92F1", nullptr, 9},
             {"9201", "microphone:unplugged", "92F1", nullptr, 9},
             {"9201", "buzzer", "92F1", "9201", 9},
             {"9202", "microphone:unplugged", "92F3", nullptr, 9},
             {"9202", "buzzer", "92F2", "9202", 9},
         }},
    };
    return series;
}

// One panel on its way through its series.
class Lane {
public:
    explicit Lane(const Series &series)
        : series_(series)
    {
        AgentPanel &at = at_;
        QByteArray lines;
        for (int i = 1; i <= 10; ++i)
            lines += "line " + QByteArray::number(i) + '\n';
        at.panel.writeFile(at.ict("T1_TP_Value.txt"), lines);
        at.panel.writeFile(at.ict("T2_TP_Value.txt"), lines);
        QDir().mkpath(at.panel.hostPath("/mnt/ict_log"));
        QProcess::execute("tar",
                          {"czf", at.panel.hostPath("/mnt/ict_log/ict_log.tgz"), "-C",
                           at.panel.hostPath("/usr/local/ict"), "T1_TP_Value.txt"});
        if (qstrcmp(series.level, "T2") == 0) {
            at.panel.writeFile(at.ict("HMI_MACHINE_ID.txt"), machineId);
            at.panel.writeFile(at.ict("HMI_SEMIMACHINE_ID.txt"), semiId);
        }
    }
    bool boot()
    {
        // The storage test finds its medium once the RAM disk is there.
        return at_.boot(series_.level)
            && waitFor(
                   [this] {
                       return QFile::exists(at_.panel.hostPath("/mnt/ramdisk/HMI_ICT_Test.txt"));
                   },
                   10000);
    }
    QString run(const Row &row);

private:
    QByteArray requestOf(const QByteArray &request);
    QByteArray ask(const QByteArray &request);
    QString check(const Row &row, const char *reply, char result);
    bool leftInOrder(const QByteArray &request);

    const Series &series_;
    AgentPanel at_;
};

QByteArray Lane::requestOf(const QByteArray &request)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (request == "8D" || request == "8E")
        return station::clockRequest(request, now);
    if (request == "0602" || request == "0603")
        return station::identityRequest(0, request, semiId);
    if (request.endsWith("0601"))
        return station::identityRequest(0, "0601", request.size() > 4 ? numberedId : machineId);
    return requestFrame(request.right(4), request.size() > 4 ? request.left(2) : "00");
}

// What the station receives until the line is quiet, and sees beside it.
QByteArray Lane::ask(const QByteArray &request)
{
    if (request == "9002")
        at_.panel.touchPress({400, 240});
    QByteArray reply = at_.ask(requestOf(request), 1, 20000);
    reply += at_.link().read(100, 60);
    if (request == "9002")
        at_.panel.touchRelease();
    if (request == "9301")
        reply = reply.mid(3, 4) + " at " + QByteArray::number(at_.panel.backlight()) + " %";
    return reply;
}

// What tests of the display and the buzzer owe to those that follow: the probes disconnected, the
// tone off.
bool Lane::leftInOrder(const QByteArray &request)
{
    VirtualPanel &panel = at_.panel;
    if (request.startsWith("92"))
        return panel.events().toneAt(monotonicNs()) == 0;
    if (!QList<QByteArray>{"9502", "9503", "9508", "9509"}.contains(request))
        return true;
    const QVector<ToolCall> calls = panel.calls();
    return !calls.isEmpty() && calls.last().tool == "lcd_circuit_test_uninit.sh"
        && !panel.port(Port::ttyO4)->isOpenOnPanel();
}

// Empty if the reply is right and no item but the row's has changed.
QString Lane::check(const Row &row, const char *reply, char result)
{
    QByteArray wanted = reply;
    const bool digits = wanted.size() == 4;
    if (wanted == "ID") {
        const QByteArray code(row.request),
            text = "00" + code + (code == "0701" ? machineId : semiId);
        wanted = ':' + text + station::characterLrc(text) + "\r\n";
    } else if (digits) {
        wanted = requestFrame(wanted);
    }
    QByteArray results = at_.results(series_.level);
    const QByteArray got = ask(row.request);
    if (got != wanted)
        return QString("answered \"%1\" instead of \"%2\"")
            .arg(station::printable(got), station::printable(wanted));
    if (row.item && result)
        results[row.item - 1] = result;
    // The panel records after it has answered.
    if (!waitFor([&] { return at_.results(series_.level) == results; }, 2000))
        return QString("item results %1 instead of %2")
            .arg(QString(at_.results(series_.level)), QString(results));
    if (!waitFor([&] { return leftInOrder(row.request); }, 2000))
        return "leaves the buzzer on, the display's pattern or COM2 open";
    return {};
}

QString Lane::run(const Row &row)
{
    QString wrong;
    const auto set = [&](const QString &fault) {
        if (!fault.isEmpty() && wrong.isEmpty())
            wrong = at_.fixture.setFault(fault);
    };
    set(row.kind);
    set(row.fault);
    if (series_.cycle && *row.fault && !boot())
        wrong = "does not boot";
    if (row.bad && wrong.isEmpty())
        wrong = check(row, row.bad, row.badResult);
    at_.fixture.clearFault(row.fault);
    if (series_.cycle && row.good && !boot())
        wrong = "does not boot";
    if (row.good && wrong.isEmpty()) {
        wrong = check(row, row.good, '1');
        if (!wrong.isEmpty())
            wrong = "without the fault: " + wrong;
    }
    at_.fixture.clearFault(row.kind);
    return wrong;
}

} // namespace

void TstFaultMatrix::initTestCase()
{
    // The long waits side by side, the rest one after the other beside them, so that the panels do
    // not slow each other down.
    QMutex mutex;
    QElapsedTimer clock;
    clock.start();
    const auto go = [&](const QVector<int> &indices) {
        for (int index : indices) {
            const Series &series = allSeries()[index];
            Lane lane(series);
            const bool on = lane.boot();
            for (const Row &row : series.rows) {
                const QString wrong = on ? lane.run(row) : "the panel does not boot";
                const QMutexLocker lock(&mutex);
                outcome_[row.name(series.name)] = wrong;
                printf("%6.1f s  %-50s %s\n", double(clock.elapsed()) / 1000,
                       qPrintable(row.name(series.name)),
                       wrong.isEmpty() ? "ok" : qPrintable(wrong));
                fflush(stdout); // minutes would pass without a word
            }
        }
    };
    QVector<QThread *> threads;
    for (const QVector<int> &indices : {QVector<int>{0, 1}, {2, 3, 4}, {5}, {6, 7}}) {
        threads << QThread::create(go, indices);
        threads.last()->start();
    }
    for (QThread *thread : threads)
        thread->wait();
    qDeleteAll(threads);
}

void TstFaultMatrix::fault_data()
{
    QTest::addColumn<QString>("row");
    for (const Series &series : allSeries()) {
        for (const Row &row : series.rows) {
            const QString name = row.name(series.name);
            QTest::newRow(qPrintable(name)) << name;
        }
    }
}

void TstFaultMatrix::fault()
{
    QFETCH(QString, row);
    const QString wrong = outcome_.value(row, "was not tried");
    QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
}

void TstFaultMatrix::faultTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("no such name") << "lmc:3"
                                  << "no fault \"lmc\"";
    QTest::newRow("no such value") << "lcm:21"
                                   << "1...20";
    QTest::newRow("value missing") << "lost"
                                   << "file of";
    QTest::newRow("value not wanted") << "stick:2"
                                      << "takes no value";
    QTest::newRow("path for a file") << "lost:../../etc/passwd.txt"
                                     << "file of";
    QTest::newRow("program the image has not") << "script:ls=missing"
                                               << "no program ls";
}

void TstFaultMatrix::faultTexts()
{
    QFETCH(QString, text);
    QFETCH(QString, complaint);
    VirtualPanel panel;
    Fixture fixture(panel);
    const QString wrong = fixture.setFault(text);
    QVERIFY2(wrong.contains(complaint), qPrintable(wrong));
    QCOMPARE(fixture.faults(), QStringList());
}

QTEST_GUILESS_MAIN(TstFaultMatrix)
#include "tst_faultmatrix.moc"
