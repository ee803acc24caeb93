#include "fixture/finger.h"
#include "mainwindow.h"
#include "panel/agentpanel.h"

#include <QApplication>
#include <QTimer>

namespace {

constexpr char pointercal[] = "/etc/pointercal", backup[] = "/usr/local/ict/pointercal",
               t1Values[] = "/usr/local/ict/T1_TP_Value.txt";
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
    void lastGoodFile();
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

// Before the first touch, in the middle of either dialog and as the check begins.
void TstCalibration::oneAnswerForRepeatedRequests()
{
    Scene scene("T1 \n");
    const QVector<QPoint> calibration = touchTargets(calibrationMargin),
                          check = touchTargets(checkMargin);
    QVERIFY(scene.powerCycle());
    for (int dialogs = 1; dialogs <= 2; ++dialogs) { // which look alike
        scene.request("9004");
        QTRY_COMPARE(scene.callsOf("mem_rdwr"), dialogs);
        scene.sendAndSettle("");
    }
    QCOMPARE(scene.finger.follow(calibration.mid(0, 2)), QString());
    scene.request("9004");
    QCOMPARE(scene.finger.follow(calibration + check.mid(0, 1)), QString());
    scene.request("9000");
    QCOMPARE(scene.finger.follow(calibration + check.mid(0, 2)), QString());
    scene.request("9004");
    QCOMPARE(scene.finger.calibrate(false), QString());
    QCOMPARE(scene.reply(), requestFrame("9004"));
    QCOMPARE(scene.all(""), QByteArray());
    QCOMPARE(scene.panel.readFile(t1Values).split('\n').value(6), QByteArray("(0,0)"));
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
        QThread::msleep(150); // half of it is over
        panel.screen().pointer({300, 300}, true);
        panel.screen().pointer({310, 300}, true);
        panel.screen().pointer({310, 300}, false);
        ++tries;
        QTRY_COMPARE(events("MoveEvent : (0310, 0300)"), tries);
        QCOMPARE(events("MoveEvent : (0310, 0300), ADC (0000"), 0); // as before the first sample
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
    QGuiApplication application(argc, argv);
    TstCalibration test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_calibration.moc"
