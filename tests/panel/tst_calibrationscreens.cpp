#include "fixture/finger.h"
#include "panel/agentpanel.h"
#include "panel/expectedscreen.h"

// What the dialogs of a calibration and its check show, touch after touch, and what the ICT screen
// shows of them.
class TstCalibrationScreens : public QObject {
    Q_OBJECT

private slots:
    void passes_data();
    void passes();
};

// A finger that the touch stack alone sees: the ADC stays as the test has left it.
void point(VirtualPanel &panel, const QPoint &pixel)
{
    QThread::msleep(350); // what comes sooner is a bounce
    for (const char *event : {" PressEvent", "ReleaseEvent"}) {
        const int before = panel.output().count(event);
        panel.screen().pointer(pixel, *event == ' ');
        QTRY_COMPARE(panel.output().count(event), before + 1);
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

// Hits up to the tolerance of the level and misses one pixel beyond.
struct Pass {
    const char *name; // its level
    QByteArray code, reply; // without a code: the run mode
    int step; // over targets that are not shown
    QVector<QPoint> offsets; // of the touches; a miss is marked where it was
    QByteArray hits; // pens of the ICT screen's lines
};
Q_DECLARE_METATYPE(Pass)

void TstCalibrationScreens::passes_data()
{
    addRows<Pass>({
        {"T1", "9004", "90F4", 2, {{10, -10}, {-50, 50}, {3, 11}, {50, -50}, {0, 0}}, "brrrb"},
        {"T2", "9001", "90F1", 1, {{-11, 11}, {12, 0}, {-12, 0}, {0, 12}, {1, -1}}, "brrrb"},
        {"HMI", "", "", 2, {{12, 0}, {}, {0, -13}, {}, {}}, "b r b"},
    });
}

// With the offsets of the touches; those of targets that were not shown are from the calibration.
Expected ictScreen(const Pass &row, const QVector<QPoint> &targets)
{
    const QByteArray level = row.name;
    const bool t1 = level == "T1";
    Expected screen;
    screen
        .text(40, 30, "      Ostra HMI KLV-100 " + level + " Test =====", 18,
              t1 ? Qt::red : Qt::blue)
        .items(t1 ? t1Items : t2Items, t1 ? "00000000000F0000000" : "0000000000F000000")
        .corners()
        .traffic(requestFrame(row.code).chopped(2), requestFrame(row.reply).chopped(2));
    for (int i = 0; i < 5; ++i)
        screen.text(300, 320 + 20 * i,
                    QString::asprintf("Target(%03d, %03d), offset(%+d, %+d)", targets[i].x(),
                                      targets[i].y(), row.offsets[i].x(), row.offsets[i].y()),
                    14, row.hits[i] == 'b' ? Qt::blue : Qt::red);
    return screen;
}

void TstCalibrationScreens::passes()
{
    QFETCH(Pass, row);
    AgentPanel scene;
    VirtualPanel &panel = scene.panel;
    const auto shows = [&](const Expected &screen) {
        return waitFor([&] { return screen.difference(panel) == 0; }, DeadlineMs);
    };
    const bool app = row.code.isEmpty();
    if (app) {
        panel.setLevel(row.name);
        panel.powerOn({"HMIAppCalibation"});
    } else {
        QVERIFY(scene.boot(row.name));
        scene.link().write(requestFrame(row.code));
    }
    const auto targets = touchTargets(calibrationMargin), check = touchTargets(app ? 100 : 50);
    for (int i = 0; i < 5 && row.code != "9001"; ++i) {
        QVERIFY(shows(dialogScreen(Dialog::Calibration, targets, i, {})));
        point(panel, targets[i]);
    }
    QMap<int, QPoint> marks;
    for (int i = 0; i < 5; i += row.step) {
        QVERIFY(shows(dialogScreen(app ? Dialog::AppCheck : Dialog::Check, check, i, marks)));
        point(panel, check[i] + row.offsets[i]);
        marks[i] = check[i] + (row.hits[i] == 'b' ? QPoint() : row.offsets[i]);
    }
    if (app)
        return;
    QCOMPARE(scene.link().read(11), requestFrame(row.reply));
    QVERIFY(shows(ictScreen(row, check)));
}

QTEST_MAIN(TstCalibrationScreens)
#include "tst_calibrationscreens.moc"
