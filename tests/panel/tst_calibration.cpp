#include "fixture/finger.h"
#include "mainwindow.h"
#include "panel/panelharness.h"

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
class Scene {
public:
    explicit Scene(const QByteArray &level, const PanelOptions &options = {})
        : panel(options)
        , finger(panel)
        , pc(panel)
    {
        panel.writeFile("/usr/local/ict/HMI_TEST_LEVEL.txt", level);
        panel.writeFile(backup, lastGood);
        panel.touchPanel() = TouchPanel::ofPanel(4711);
    }
    ~Scene()
    {
        const QByteArray said = panel.errorOutput(); // by an agent built with a sanitizer
        if (said.contains("Sanitizer"))
            QTest::qFail(said, __FILE__, __LINE__);
    }
    bool boot(const QStringList &args = {})
    {
        panel.powerOn(args);
        return waitFor([&] { return panel.port(Port::ttyO1)->isOpenOnPanel(); }, 20000);
    }
    void request(const QByteArray &code)
    {
        pc.write(requestFrame(code));
    }
    QByteArray reply(int ms = 5000)
    {
        return pc.read(11, ms);
    }
    // The last character of an item's record: '0', 'F' or '1'.
    QByteArray recorded(const char *level, int item) const
    {
        const QString file = QString("/usr/local/ict/HMI_%1_TEST_Flag.txt").arg(level);
        return QByteArray(panel.readFile(file).mid(item * 64, 64).constData()).right(1);
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

    VirtualPanel panel;
    Finger finger;
    PcPort pc;
};

// A finger that the touch stack alone sees: the ADC stays as the test has left it.
void point(VirtualPanel &panel, const QVector<QPoint> &pixels)
{
    for (const QPoint &pixel : pixels) {
        QTest::qWait(450);
        panel.screen().pointer(pixel, true);
        panel.screen().pointer(pixel, false);
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
    void applicationCalibrates_data();
    void applicationCalibrates();
    void lastGoodFile_data();
    void lastGoodFile();
    void deadAdcStoresNothing();
    void oneAnswerForRepeatedRequests();
    void linkLivesWhileDialogIsUp();
    void hastyAndHeldTouches();
    void dialogStaysOnGuiThread();
};

void TstCalibration::stationCalibrates_data()
{
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<double>("bend");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QByteArray>("saved");
    QTest::newRow("good foil") << QByteArray("9000") << 0.0 << QByteArray("9000")
                               << QByteArray("bbbbb") << lastGood;
    QTest::newRow("two corners off")
        << QByteArray("9000") << 40.0 << QByteArray("90F0") << QByteArray("brbrb") << lastGood;
    QTest::newRow("two corners off, not looked at")
        << QByteArray("9004") << 40.0 << QByteArray("9004") << QByteArray("brbrb") << lastGood;
    QTest::newRow("bent all over, endless backup")
        << QByteArray("9004") << 100.0 << QByteArray("90F4") << QByteArray("rrrrr") << endless;
}

void TstCalibration::stationCalibrates()
{
    QFETCH(QByteArray, code);
    QFETCH(double, bend);
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, lines);
    QFETCH(QByteArray, saved);
    const bool passes = code == reply;
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    panel.writeFile(backup, saved);
    panel.touchPanel().bend = bend;
    QVERIFY(scene.boot());
    scene.request(code);
    QCOMPARE(scene.finger.calibrate(code == "9000"), QString());
    QCOMPARE(scene.reply(), requestFrame(reply));
    QTRY_COMPARE(scene.pointLines(), lines);

    const QByteArray fitted = scene.constants().append('\0');
    QCOMPARE(fitted.count(' '), 6);
    QCOMPARE(panel.readFile(pointercal),
             passes ? fitted : QByteArray(saved.left(512).constData()).append('\0'));
    QCOMPARE(panel.readFile(backup), passes ? fitted : saved);
    QCOMPARE(panel.bootEnvironment(),
             passes ? "pointercal " + scene.constants() + '\n' : QByteArray());
    QTRY_COMPARE(scene.callsOf("update_pointercal.sh"), int(passes));
    QTRY_COMPARE(scene.recorded("T1", 11), QByteArray(passes ? "1" : "F"));

    QCOMPARE(scene.callsOf("mem_rdwr"), 2);
    QCOMPARE(panel.readFile("/usr/local/conf/smpl_delay"), QByteArray("1\n"));
    const QList<QByteArray> touched = panel.readFile(t1Values).split('\n');
    QCOMPARE(touched.size(), 11);
    QVERIFY2(!passes || QRegExp("\\((4|5)\\d,(4|5)\\d\\)").exactMatch(touched[5]), touched[5]);
    QCOMPARE(touched[6] == "(0,0)", code == "9004"); // never shown
}

void TstCalibration::stationChecks_data()
{
    QTest::addColumn<double>("shift");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("lines");
    QTest::newRow("as calibrated") << 0.0 << QByteArray("9001") << QByteArray("bbbbb");
    QTest::newRow("slipped since") << 20.0 << QByteArray("90F1") << QByteArray("rrrrr");
}

void TstCalibration::stationChecks()
{
    QFETCH(double, shift);
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, lines);
    Scene scene("T2 \n");
    scene.panel.touchPanel() = TouchPanel(); // the one that the shipped calibration is for
    scene.panel.touchPanel().shift = shift;
    QVERIFY(scene.boot());
    scene.request("9001");
    QCOMPARE(scene.finger.check(), QString());
    QCOMPARE(scene.reply(), requestFrame(reply));
    QTRY_COMPARE(scene.pointLines(), lines);
    QTRY_COMPARE(scene.recorded("T2", 10), QByteArray(reply == "9001" ? "1" : "F"));
    QCOMPARE(scene.panel.readFile(pointercal), shipped);
    QCOMPARE(scene.panel.readFile(backup), lastGood);
    QCOMPARE(scene.panel.readFile(t2Values).count('\n'), 5);
    QCOMPARE(scene.panel.bootEnvironment(), QByteArray());

    // The dialog is closed: what is touched now is nothing to it.
    QTest::qWait(400);
    scene.panel.tap({400, 240});
    QCOMPARE(scene.pc.read(1, 800), QByteArray());
    QCOMPARE(scene.panel.output().count("PressEvent"), 5);
}

void TstCalibration::applicationCalibrates_data()
{
    QTest::addColumn<double>("bend");
    QTest::addColumn<bool>("adcDead");
    QTest::addColumn<int>("status");
    QTest::newRow("good foil") << 0.0 << false << 0;
    QTest::newRow("bent all over, empty backup") << 120.0 << false << 255;
    QTest::newRow("no fit") << 0.0 << true << 255;
}

void TstCalibration::applicationCalibrates()
{
    QFETCH(double, bend);
    QFETCH(bool, adcDead);
    QFETCH(int, status);
    Scene scene("HMI\n");
    VirtualPanel &panel = scene.panel;
    panel.writeFile(backup, "");
    if (bend == 0)
        QVERIFY(QFile::remove(panel.hostPath(backup)));
    panel.touchPanel().bend = bend;
    panel.powerOn({"HMIAppCalibation"});
    if (adcDead) {
        QTest::qWait(500);
        point(panel, touchTargets(calibrationMargin));
    } else {
        QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin)
                                     + touchTargets(calibrationMargin, false)),
                 QString());
    }
    QCOMPARE(panel.waitForExit(5000), status);
    const QByteArray fitted = scene.constants();
    QCOMPARE(panel.output().contains(tooSmall), adcDead);
    QCOMPARE(panel.readFile(pointercal), status ? shipped : fitted + '\0');
    QCOMPARE(panel.readFile(backup), shipped); // kept before the first calibration
    QCOMPARE(panel.bootEnvironment(), status ? QByteArray() : "pointercal " + fitted + '\n');
}

void TstCalibration::lastGoodFile_data()
{
    QTest::addColumn<QByteArray>("current"); // null: there is none
    QTest::addColumn<QByteArray>("saved");
    QTest::addColumn<QByteArray>("currentAfter");
    QTest::addColumn<QByteArray>("savedAfter");
    const QByteArray none, empty("");
    QTest::newRow("both there") << shipped << lastGood << lastGood << lastGood;
    QTest::newRow("no backup") << shipped << none << shipped << shipped;
    QTest::newRow("empty backup") << shipped << empty << shipped << shipped;
    QTest::newRow("backup of 600 bytes")
        << shipped << endless << endless.left(256).append('\0') << endless;
    QTest::newRow("backup without zero byte")
        << shipped << QByteArray("1 2 3 4 5 6 7") << QByteArray("1 2 3 4 5 6 7\0", 14)
        << QByteArray("1 2 3 4 5 6 7");
    QTest::newRow("no file") << none << lastGood << lastGood << lastGood;
    QTest::newRow("empty file") << empty << lastGood << lastGood << lastGood;
    QTest::newRow("neither") << none << none << none << empty;
}

void TstCalibration::lastGoodFile()
{
    QFETCH(QByteArray, current);
    QFETCH(QByteArray, saved);
    QFETCH(QByteArray, currentAfter);
    QFETCH(QByteArray, savedAfter);
    Scene scene("T1 \n");
    const auto lay = [&](const char *path, const QByteArray &content) {
        scene.panel.writeFile(path, content);
        if (content.isNull())
            QFile::remove(scene.panel.hostPath(path));
    };
    lay(pointercal, current);
    lay(backup, saved);
    QVERIFY(scene.boot());
    scene.request("9000");
    QTRY_COMPARE(scene.callsOf("mem_rdwr"), 1);
    QTRY_COMPARE(scene.panel.readFile(backup), savedAfter);
    QCOMPARE(scene.panel.readFile(pointercal), currentAfter);
}

// The check can pass without a fit, on the calibration that was there. There is nothing to hand to
// the boot loader then.
void TstCalibration::deadAdcStoresNothing()
{
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    panel.writeFile(backup, shipped);
    QVERIFY(scene.boot());
    panel.writeFile(attribute::adcX, "not a number\n");
    panel.writeFile(attribute::adcY, "");
    scene.request("9000");
    const QVector<QPoint> targets = touchTargets(calibrationMargin);
    QTRY_COMPARE(scene.callsOf("mem_rdwr"), 1);
    point(panel, targets.mid(0, 3));
    panel.setPresent(attribute::adcX, false);
    point(panel, targets.mid(3) + touchTargets(checkMargin));
    QCOMPARE(scene.reply(), requestFrame("9000"));
    QVERIFY2(panel.output().contains(tooSmall), panel.output());
    QTRY_COMPARE(scene.recorded("T1", 11), QByteArray("1"));
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
    QVERIFY(scene.boot());
    scene.request("9004");
    scene.request("9004");
    QCOMPARE(scene.finger.follow(calibration.mid(0, 2)), QString());
    scene.request("9004");
    QCOMPARE(scene.finger.follow(calibration + check.mid(0, 1)), QString());
    scene.request("9000");
    QCOMPARE(scene.finger.follow(calibration), QString());
    scene.request("9000");
    QCOMPARE(scene.finger.calibrate(), QString());
    QCOMPARE(scene.pc.read(22, 2000), requestFrame("9000"));
    QCOMPARE(scene.panel.readFile(t1Values).count('\n'), 10);
    scene.request("9000"); // and once more, after the answer
    QCOMPARE(scene.finger.calibrate(), QString());
    QCOMPARE(scene.pc.read(22, 2000), requestFrame("9000"));
}

void TstCalibration::linkLivesWhileDialogIsUp()
{
    Scene scene("T1 \n");
    QVERIFY(scene.boot());
    scene.request("9000");
    QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin).mid(0, 1)), QString());
    QVERIFY(scene.pc.ask(requestFrame("FF00")).endsWith(".120\n")); // at any level
    QCOMPARE(scene.pc.ask(requestFrame("9302")), requestFrame("9302")); // T1's own table
    const QVector<QPoint> check = touchTargets(checkMargin);
    QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin).mid(1) + check.mid(0, 1)),
             QString());
    QVERIFY(scene.pc.ask(requestFrame("FF00")).endsWith(".120\n"));
    QCOMPARE(scene.pc.ask(requestFrame("9302"), 11, 1500), QByteArray()); // not while it checks
    QCOMPARE(scene.finger.follow(check.mid(1)), QString()); // the dialog has stayed on top
    QCOMPARE(scene.reply(), requestFrame("9000"));
    QCOMPARE(scene.pc.ask(requestFrame("9302")), requestFrame("9302"));
}

void TstCalibration::hastyAndHeldTouches()
{
    Scene scene("T1 \n");
    VirtualPanel &panel = scene.panel;
    const auto events = [&](const char *what) { return panel.output().count(what); };
    QVERIFY(scene.boot());
    scene.request("9000");
    QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin).mid(0, 1)), QString());
    // Within the pause a touch does not count, but its drag does.
    panel.screen().pointer({300, 300}, true);
    panel.screen().pointer({310, 300}, true);
    panel.screen().pointer({310, 300}, false);
    QTRY_COMPARE(events("MoveEvent : (0310, 0300)"), 1);
    // A finger that stays: the pass waits, the link does not.
    QTest::qWait(400);
    panel.screen().pointer({700, 100}, true);
    QTRY_COMPARE(events("PressEvent : (0700, 0100)"), 1);
    QCOMPARE(scene.pc.ask(requestFrame("8000")), requestFrame("8000"));
    panel.screen().pointer({702, 100}, true);
    QTRY_COMPARE(events("MoveEvent : (0702, 0100)"), 1);
    QCOMPARE(events("ReleaseEvent"), 1);
    panel.screen().pointer({702, 100}, false);
    QTRY_COMPARE(events("ReleaseEvent : (0702, 0100)"), 1);
    QCOMPARE(events("PressEvent"), 2);
}

void TstCalibration::dialogStaysOnGuiThread()
{
    Scene scene("T1 \n", running(QCoreApplication::applicationFilePath()));
    VirtualPanel &panel = scene.panel;
    QVERIFY(scene.boot({"--watched-agent"}));
    scene.request("9000");
    QCOMPARE(scene.finger.calibrate(), QString());
    QCOMPARE(scene.reply(), requestFrame("9000"));
    for (const char *kind : {"paint", "press", "move", "release"})
        QVERIFY2(panel.output().count(QByteArray(kind) + " on GUI thread") >= 10, kind);
    QVERIFY2(!panel.output().contains("another thread"), panel.output());

    // Ends cleanly with a dialog up.
    scene.request("9000");
    QCOMPARE(scene.finger.follow(touchTargets(calibrationMargin).mid(0, 2)), QString());
    panel.writeFile("/tmp/quit", "");
    QCOMPARE(panel.waitForExit(5000), 0);
    QVERIFY2(!panel.errorOutput().contains("QThread"), panel.errorOutput());
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
