#include "fixture/finger.h"
#include "mainwindow.h"
#include "panel/agentpanel.h"

#include <QApplication>
#include <QTimer>

namespace {

constexpr char pointercal[] = "/etc/pointercal", backup[] = "/usr/local/ict/pointercal",
               t1Values[] = "/usr/local/ict/T1_TP_Value.txt",
               t2Values[] = "/usr/local/ict/T2_TP_Value.txt",
               tooSmall[] = "ts_calibrate: determinant is too small -- 0.000000\n";
const QByteArray lastGood("13000 5 -7 -3 7700 9 65536\0", 27);
const QByteArray shipped = QByteArray(factoryPointercal).append('\0');
const QByteArray endless(600, '1');

// A panel at a test level, with a foil of its own and a calibration that was good once.
class Scene : public AgentPanel {
public:
    explicit Scene(const QByteArray &level, const PanelOptions &options = {})
        : AgentPanel(options)
        , finger(panel)
    {
        panel.writeFile(ict("HMI_TEST_LEVEL.txt"), level);
        panel.writeFile(backup, lastGood);
        panel.touchPanel() = TouchPanel::ofPanel(4711);
    }
    ~Scene()
    {
        const QByteArray said = panel.errorOutput(); // by an agent built with a sanitizer
        if (said.contains("Sanitizer"))
            QTest::qFail(said, __FILE__, __LINE__);
    }
    void request(const QByteArray &code)
    {
        link().write(requestFrame(code));
    }
    QByteArray reply()
    {
        return link().read(11);
    }
    int callsOf(const QString &tool) const
    {
        int count = 0;
        for (const ToolCall &call : panel.calls())
            count += call.tool == tool;
        return count;
    }
    // The numbers of the fit, as the agent has printed them.
    QByteArray constants() const
    {
        const QByteArray said = panel.output();
        const int start = said.indexOf("Calibration constants: ") + 23;
        return start < 23 ? QByteArray() : said.mid(start, said.indexOf('\n', start) - start);
    }
    // The pen of each touched point's line on the screen: 'b' for a hit, 'r' for a miss.
    QByteArray pointLines()
    {
        const QImage image = panel.screen().grab();
        QByteArray pens;
        for (int line = 0; line < 5; ++line) {
            QByteArray pen = "-";
            for (int x = 300; x < 400; ++x) {
                for (int y = 308 + 20 * line; y < 322 + 20 * line; ++y) {
                    const QColor colour = colourAt(image, x, y);
                    if (colour == QColor(Qt::blue) || colour == QColor(Qt::red))
                        pen = colour == QColor(Qt::blue) ? "b" : "r";
                }
            }
            pens += pen;
        }
        return pens;
    }

    Finger finger;
};

// A finger that the touch stack alone sees: the ADC stays as the test has left it.
void point(Scene &scene, const QVector<QPoint> &pixels)
{
    for (const QPoint &pixel : pixels) {
        QCOMPARE(scene.finger.awaitTarget(pixel), QString());
        QThread::msleep(350); // what comes sooner is a bounce
        for (const char *event : {" PressEvent", "ReleaseEvent"}) {
            const int before = scene.panel.output().count(event);
            scene.panel.screen().pointer(pixel, *event == ' ');
            QTRY_COMPARE(scene.panel.output().count(event), before + 1);
        }
    }
}

// The agent as it is, in an application that watches the calibration dialog's events and ends when
// it finds /tmp/quit.
class WatchedApplication : public QApplication {
public:
    using QApplication::QApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        const QMap<int, const char *> watched = {{QEvent::Paint, "paint"},
                                                 {QEvent::MouseButtonPress, "press"},
                                                 {QEvent::MouseMove, "move"},
                                                 {QEvent::MouseButtonRelease, "release"}};
        if (watched.contains(event->type()) && receiver->inherits("Calibration"))
            printf("%s on %s\n", watched[event->type()],
                   QThread::currentThread() == thread() ? "GUI thread" : "another thread");
        return QApplication::notify(receiver, event);
    }
};

int runWatchedAgent(int argc, char *argv[])
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    WatchedApplication application(argc, argv);
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [] {
        if (QFile::exists("/tmp/quit"))
            QApplication::quit();
    });
    timer.start(50);
    MainWindow window;
    window.showFullScreen();
    return QApplication::exec();
}

} // namespace

class TstCalibration : public QObject {
    Q_OBJECT

private slots:
    void stationCalibrates_data();
    void stationCalibrates();
    void stationChecks_data();
    void stationChecks();
    void applicationCalibrates();
    void lastGoodFile();
    void deadAdcStoresNothing();
    void oneAnswerForRepeatedRequests();
    void linkLivesWhileDialogIsUp();
    void hastyAndHeldTouches();
};

struct Foil {
    const char *name;
    QByteArray code;
    double fault; // bend or shift
    QByteArray reply, lines, saved = lastGood;
};
Q_DECLARE_METATYPE(Foil)

void TstCalibration::stationCalibrates_data()
{
    addRows<Foil>({
        {"good foil", "9000", 0, "9000", "bbbbb"},
        {"two corners off", "9000", 40, "90F0", "brbrb"},
        {"two corners off, not looked at", "9004", 40, "9004", "brbrb"},
        {"bent all over, endless backup", "9004", 100, "90F4", "rrrrr", endless},
    });
}

void TstCalibration::stationCalibrates()
{
    QFETCH(Foil, row);
    const QByteArray code = row.code, saved = row.saved;
    const bool passes = code == row.reply;
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    panel.writeFile(backup, saved);
    panel.touchPanel().bend = row.fault;
    QVERIFY(scene.powerCycle());
    scene.request(code);
    QCOMPARE(scene.finger.calibrate(code == "9000"), QString());
    QCOMPARE(scene.reply(), requestFrame(row.reply));
    QTRY_COMPARE(scene.pointLines(), row.lines);

    const QByteArray fitted = scene.constants().append('\0');
    QCOMPARE(fitted.count(' '), 6);
    QCOMPARE(panel.readFile(pointercal),
             passes ? fitted : QByteArray(saved.left(512).constData()).append('\0'));
    QCOMPARE(panel.readFile(backup), passes ? fitted : saved);
    QCOMPARE(panel.bootEnvironment(),
             passes ? "pointercal " + scene.constants() + '\n' : QByteArray());
    QTRY_COMPARE(scene.callsOf("update_pointercal.sh"), int(passes));
    QTRY_COMPARE(scene.results("T1").mid(11, 1), QByteArray(passes ? "1" : "F"));

    QCOMPARE(scene.callsOf("mem_rdwr"), 2);
    QCOMPARE(panel.readFile("/usr/local/conf/smpl_delay"), QByteArray("1\n"));
    const QList<QByteArray> touched = panel.readFile(t1Values).split('\n');
    QCOMPARE(touched.size(), 11);
    QVERIFY2(!passes || QRegExp("\\((4|5)\\d,(4|5)\\d\\)").exactMatch(touched[5]), touched[5]);
    QVERIFY2(!passes || QRegExp("\\(7[45]\\d,4[23]\\d\\)").exactMatch(touched[7]), touched[7]);
    QCOMPARE(touched[6] == "(0,0)", code == "9004"); // never shown
}

void TstCalibration::stationChecks_data()
{
    addRows<Foil>({
        {"as calibrated", "9001", 0, "9001", "bbbbb"},
        {"slipped since", "9001", 20, "90F1", "rrrrr"},
    });
}

void TstCalibration::stationChecks()
{
    QFETCH(Foil, row);
    Scene scene("T2 \n");
    scene.panel.touchPanel() = TouchPanel(); // the one that the shipped calibration is for
    scene.panel.touchPanel().shift = row.fault;
    QVERIFY(scene.powerCycle());
    scene.request("9001");
    QCOMPARE(scene.finger.check(), QString());
    QCOMPARE(scene.reply(), requestFrame(row.reply));
    QTRY_COMPARE(scene.pointLines(), row.lines);
    QTRY_COMPARE(scene.results("T2").mid(10, 1), QByteArray(row.reply == "9001" ? "1" : "F"));
    QCOMPARE(scene.panel.readFile(pointercal), shipped);
    QCOMPARE(scene.panel.readFile(backup), lastGood);
    QCOMPARE(scene.panel.readFile(t2Values).count('\n'), 5);
    QCOMPARE(scene.panel.bootEnvironment(), QByteArray());

    // The dialog is closed: what is touched now is nothing to it.
    QThread::msleep(350);
    scene.panel.tap({400, 240});
    QCOMPARE(scene.all(""), QByteArray());
    QCOMPARE(scene.panel.output().count("PressEvent"), 5);
}

void TstCalibration::applicationCalibrates()
{
    const struct {
        const char *name;
        double bend;
        bool adcDead;
        int status;
    } rows[] = {
        {"good foil", 0, false, 0},
        {"bent all over, empty backup", 120, false, 255},
        {"no fit", 0, true, 255},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        const int status = row.status;
        const QVector<QPoint> targets =
            touchTargets(calibrationMargin) + touchTargets(calibrationMargin, false);
        Scene scene("HMI\n");
        VirtualPanel &panel = scene.panel;
        panel.writeFile(backup, "");
        if (row.bend == 0)
            QVERIFY(QFile::remove(panel.hostPath(backup)));
        panel.touchPanel().bend = row.bend;
        panel.powerOn({"HMIAppCalibation"});
        if (row.adcDead) {
            point(scene, targets); // the check passes, on the calibration that was there
        } else {
            QCOMPARE(scene.finger.follow(targets), QString());
        }
        QCOMPARE(panel.waitForExit(DeadlineMs), status);
        QCOMPARE(scene.callsOf("mem_rdwr"), 2); // a dialog each
        const QByteArray fitted = scene.constants();
        QCOMPARE(panel.output().contains(tooSmall), row.adcDead);
        QCOMPARE(panel.readFile(pointercal), status ? shipped : fitted + '\0');
        QCOMPARE(panel.readFile(backup), shipped); // kept before the first calibration
        QCOMPARE(panel.bootEnvironment(), status ? QByteArray() : "pointercal " + fitted + '\n');
    }
}

void TstCalibration::lastGoodFile()
{
    const QByteArray none, empty(""), bare("1 2 3 4 5 6 7");
    const struct {
        const char *name;
        QByteArray current, saved; // null: there is none
        QByteArray currentAfter, savedAfter;
    } rows[] = {
        {"both there", shipped, lastGood, lastGood, lastGood},
        {"no backup", shipped, none, shipped, shipped},
        {"empty backup", shipped, empty, shipped, shipped},
        {"backup of 600 bytes", shipped, endless, endless.left(256).append('\0'), endless},
        {"backup without zero byte", shipped, bare, QByteArray("1 2 3 4 5 6 7\0", 14), bare},
        {"no file", none, lastGood, lastGood, lastGood},
        {"empty file", empty, lastGood, lastGood, lastGood},
        {"neither", none, none, none, empty},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        Scene scene("T1 \n");
        const auto lay = [&](const char *path, const QByteArray &content) {
            scene.panel.writeFile(path, content);
            if (content.isNull())
                QFile::remove(scene.panel.hostPath(path));
        };
        lay(pointercal, row.current);
        lay(backup, row.saved);
        QVERIFY(scene.powerCycle());
        scene.request("9000");
        QTRY_COMPARE(scene.callsOf("mem_rdwr"), 1);
        QTRY_COMPARE(scene.panel.readFile(backup), row.savedAfter);
        QCOMPARE(scene.panel.readFile(pointercal), row.currentAfter);
    }
}

// The check can pass without a fit, on the calibration that was there. There is nothing to hand to
// the boot loader then.
void TstCalibration::deadAdcStoresNothing()
{
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    panel.writeFile(backup, shipped);
    QVERIFY(scene.powerCycle());
    panel.writeFile(attribute::adcX, "not a number\n");
    panel.writeFile(attribute::adcY, "");
    scene.request("9000");
    const QVector<QPoint> targets = touchTargets(calibrationMargin);
    point(scene, targets.mid(0, 3));
    panel.setPresent(attribute::adcX, false);
    point(scene, targets.mid(3) + touchTargets(checkMargin));
    QCOMPARE(scene.reply(), requestFrame("9000"));
    QVERIFY2(panel.output().contains(tooSmall), panel.output());
    QTRY_COMPARE(scene.results("T1").mid(11, 1), QByteArray("1"));
    QCOMPARE(panel.readFile(pointercal), shipped);
    QCOMPARE(panel.bootEnvironment(), QByteArray());
    QCOMPARE(scene.callsOf("fw_setenv") + scene.callsOf("update_pointercal.sh"), 0);
}

// Before the first touch, in the middle of either dialog and as the check begins.
void TstCalibration::oneAnswerForRepeatedRequests()
{
    Scene scene("T1 \n");
    const QVector<QPoint> calibration = touchTargets(calibrationMargin),
                          check = touchTargets(checkMargin);
    QVERIFY(scene.powerCycle());
    scene.request("9004");
    scene.request("9004");
    QCOMPARE(scene.finger.follow(calibration.mid(0, 2)), QString());
    scene.request("9004");
    QCOMPARE(scene.finger.follow(calibration + check.mid(0, 1)), QString());
    scene.request("9000");
    QCOMPARE(scene.finger.follow(calibration), QString());
    scene.request("9000");
    QCOMPARE(scene.finger.calibrate(), QString());
    QCOMPARE(scene.reply(), requestFrame("9000"));
    QCOMPARE(scene.all(""), QByteArray());
    QCOMPARE(scene.panel.readFile(t1Values).count('\n'), 10);
}

// And the dialog is the GUI thread's alone, from its first event to its last.
void TstCalibration::linkLivesWhileDialogIsUp()
{
    Scene scene("T1 \n", running(QCoreApplication::applicationFilePath()));
    VirtualPanel &panel = scene.panel;
    const QVector<QPoint> calibration = touchTargets(calibrationMargin),
                          check = touchTargets(checkMargin);
    QVERIFY(scene.powerCycle(Port::ttyO1, {"--watched-agent"}));
    scene.request("9000");
    QCOMPARE(scene.finger.follow(calibration.mid(0, 1)), QString());
    QVERIFY(scene.ask(requestFrame("FF00")).endsWith(".120\n")); // at any level
    QCOMPARE(scene.link().ask(requestFrame("9302")), requestFrame("9302")); // T1's own table
    QCOMPARE(scene.finger.follow(calibration.mid(1) + check.mid(0, 1)), QString());
    QVERIFY(scene.ask(requestFrame("FF00")).endsWith(".120\n"));
    scene.sendAndSettle(requestFrame("9302")); // not in the check
    QVERIFY(scene.ask(requestFrame("FF00")).endsWith(".120\n"));
    QCOMPARE(scene.finger.follow(check.mid(1)), QString()); // the dialog has stayed on top
    QCOMPARE(scene.reply(), requestFrame("9000"));
    QCOMPARE(scene.link().ask(requestFrame("9302")), requestFrame("9302"));
    for (const char *kind : {"paint", "press", "move", "release"})
        QVERIFY2(panel.output().count(QByteArray(kind) + " on GUI thread") >= 10, kind);
    QVERIFY2(!panel.output().contains("another thread"), panel.output());

    // Ends cleanly with a dialog up.
    scene.request("9000");
    QCOMPARE(scene.finger.follow(calibration.mid(0, 2)), QString());
    panel.writeFile("/tmp/quit", "");
    QCOMPARE(panel.waitForExit(DeadlineMs), 0);
    QVERIFY2(!panel.errorOutput().contains("QThread"), panel.errorOutput());
}

void TstCalibration::hastyAndHeldTouches()
{
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    const auto events = [&](const char *what) { return panel.output().count(what); };
    QVERIFY(scene.powerCycle());
    int tries = 0, pressed, released;
    do { // a busy machine is seldom hasty enough
        QVERIFY(tries < 20);
        panel.screen().pointer({700, 100}, false);
        scene.request("9000");
        pressed = events(" PressEvent");
        released = events("ReleaseEvent");
        QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin).mid(0, 1)), QString());
        // Within the pause a touch does not count, but its drag does.
        panel.screen().pointer({300, 300}, true);
        panel.screen().pointer({310, 300}, true);
        panel.screen().pointer({310, 300}, false);
        ++tries;
        QTRY_COMPARE(events("MoveEvent : (0310, 0300)"), tries);
        // A finger that stays: the pass waits, the link does not.
        QThread::msleep(350);
        panel.screen().pointer({700, 100}, true);
        QTRY_COMPARE(events("PressEvent : (0700, 0100)"), tries);
    } while (events(" PressEvent") != pressed + 2 || events("ReleaseEvent") != released + 1);
    QCOMPARE(scene.ask(requestFrame("8000")), requestFrame("8000"));
    panel.screen().pointer({702, 100}, true);
    QTRY_COMPARE(events("MoveEvent : (0702, 0100)"), 1);
    QCOMPARE(events("ReleaseEvent"), released + 1);
    panel.screen().pointer({702, 100}, false);
    QTRY_COMPARE(events("ReleaseEvent : (0702, 0100)"), 1);
}

int main(int argc, char *argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "--watched-agent") == 0)
        return runWatchedAgent(argc, argv);
    QCoreApplication application(argc, argv);
    TstCalibration test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_calibration.moc"
