#include "fixture/finger.h"
#include "mainwindow.h"
#include "panel/agentpanel.h"
#include "panel/expectedscreen.h"

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

// A finger that the touch stack alone sees: the ADC stays as the test has left it.
void point(Scene &scene, const QPoint &pixel)
{
    QThread::msleep(350); // what comes sooner is a bounce
    for (const char *event : {" PressEvent", "ReleaseEvent"}) {
        const int before = scene.panel.output().count(event);
        scene.panel.screen().pointer(pixel, *event == ' ');
        QTRY_COMPARE(scene.panel.output().count(event), before + 1);
    }
}

// What a dialog shows at target `index`: where its corner labels stand is up to its kind.
enum class Dialog { Calibration, Check, AppCheck };

Expected dialogScreen(Dialog dialog, const QVector<QPoint> &targets, int index,
                      const QMap<int, QPoint> &marks)
{
    Expected screen;
    const auto label = [&](int i, const QPoint &at, const QString &name, int points, QColor pen) {
        const int side = dialog == Dialog::Check ? QVector<int>{32, -32, -32, 32, 0}[i] : 0;
        const bool above = dialog != Dialog::Calibration && (i == 2 || i == 3);
        screen.text(at.x() + side, at.y() + (above ? -32 : 32),
                    name + QString("(%1,%2)").arg(at.x()).arg(at.y()), points, pen,
                    side > 0       ? 0
                        : side < 0 ? 1
                                   : .5);
    };
    const QColor pen = dialog == Dialog::Calibration ? Qt::black : Qt::blue;
    screen.text(400, 120, "Ostra HMI Touch PointCheck", 18, Qt::blue, .5)
        .cross(targets[index], pen);
    label(index, targets[index], "", 18, pen);
    for (int i : marks.keys()) {
        label(i, marks[i], QString("P%1").arg(i + 1), 12, QColor(128, 0, 0));
        screen.cross(marks[i], QColor(128, 0, 0));
    }
    return screen;
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
    void lastGoodFile();
    void oneAnswerForRepeatedRequests();
    void linkLivesWhileDialogIsUp();
    void hastyAndHeldTouches();
    void screens();
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

// Touch after touch, hits up to the tolerance of the level and misses one pixel beyond; then the
// offsets on the ICT screen, those of targets that were not shown from the calibration.
void TstCalibration::screens()
{
    const QColor red = Qt::red, blue = Qt::blue;
    const struct {
        QByteArray level, code, reply; // without a code: the run mode
        Dialog dialog;
        int margin, step;
        QVector<QPoint> offsets; // of the touches; a miss is marked where it was
        QByteArray hits; // pens of the ICT screen's lines
    } rows[] = {
        {"T1",
         "9004",
         "90F4",
         Dialog::Check,
         50,
         2,
         {{10, -10}, {-50, 50}, {3, 11}, {50, -50}, {0, 0}},
         "brrrb"},
        {"T2",
         "9001",
         "90F1",
         Dialog::Check,
         50,
         1,
         {{-11, 11}, {12, 0}, {-12, 0}, {0, 12}, {1, -1}},
         "brrrb"},
        {"HMI", "", "", Dialog::AppCheck, 100, 2, {{12, 0}, {}, {0, -13}, {}, {}}, "b r b"},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.level.constData());
        Scene scene(row.level.leftJustified(3) + '\n');
        const auto shows = [&](const Expected &screen) {
            return waitFor([&] { return screen.difference(scene.panel) == 0; }, DeadlineMs);
        };
        QVERIFY(row.code.isEmpty() || scene.powerCycle());
        if (row.code.isEmpty())
            scene.panel.powerOn({"HMIAppCalibation"});
        else
            scene.request(row.code);
        const auto targets = touchTargets(calibrationMargin), check = touchTargets(row.margin);
        for (int i = 0; i < 5 && row.level != "T2"; ++i) {
            QVERIFY2(shows(dialogScreen(Dialog::Calibration, targets, i, {})), row.level);
            point(scene, targets[i]);
        }
        QMap<int, QPoint> marks;
        for (int i = 0; i < 5; i += row.step) {
            QVERIFY2(shows(dialogScreen(row.dialog, check, i, marks)), row.level);
            point(scene, check[i] + row.offsets[i]);
            marks[i] = check[i] + (row.hits[i] == 'b' ? QPoint() : row.offsets[i]);
        }
        if (row.code.isEmpty())
            continue;
        QCOMPARE(scene.reply(), requestFrame(row.reply));
        const bool t1 = row.level == "T1";
        Expected screen;
        screen
            .text(40, 30, "      Ostra HMI KLV-100 " + row.level + " Test =====", 18,
                  t1 ? red : blue)
            .items(t1 ? t1Items : t2Items, t1 ? "00000000000F0000000" : "0000000000F000000")
            .corners()
            .traffic(requestFrame(row.code).chopped(2), requestFrame(row.reply).chopped(2));
        for (int i = 0; i < 5; ++i)
            screen.text(300, 320 + 20 * i,
                        QString::asprintf("Target(%03d, %03d), offset(%+d, %+d)", check[i].x(),
                                          check[i].y(), row.offsets[i].x(), row.offsets[i].y()),
                        14, row.hits[i] == 'b' ? blue : red);
        QVERIFY2(shows(screen), row.level);
    }
}

int main(int argc, char *argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "--watched-agent") == 0)
        return runWatchedAgent(argc, argv);
    QGuiApplication application(argc, argv); // for its fonts
    TstCalibration test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_calibration.moc"
