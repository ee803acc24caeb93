// Construction, touches and the end of a pass; calibrationpaint.cpp draws.
#include "calibration.h"

#include "pointercal.h"
#include "system/command.h"
#include "system/screensize.h"
#include "targets.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <cstdio>

constexpr int TouchPauseMs = 299; // up to this long after a release, presses and releases bounce

Calibration::Calibration(QWidget *parent)
    : QDialog(parent)
    , m_titleFont(QStringLiteral("Ubuntu"), 18, QFont::Normal)
    , m_labelFont(QStringLiteral("Ubuntu"), 12, QFont::Normal)
{
    const QSize screen = screenSize();
    setGeometry(QRect(QPoint(), screen));
    setFocusPolicy(Qt::StrongFocus);
    setModal(true);
    setAttribute(Qt::WA_QuitOnClose, false); // without a screen it would be the last window
    m_width = screen.width();
    m_height = screen.height();
    m_calibrationTargets = calibrationTargets(screen);
    m_checkTargets = checkTargets(screen, g_uiHMI_TEST_LEVEL);
    for (int i = 0; i < TouchTargets; ++i) {
        cal.screen_x[i] = m_calibrationTargets[size_t(i)].x();
        cal.screen_y[i] = m_calibrationTargets[size_t(i)].y();
        ga_PointCalibrationCheck[i] = QPoint();
    }
    // A register of the touch-screen controller, set for the finer sampling that the targets need.
    runProcess(QStringLiteral("/usr/local/ict/mem_rdwr --wr 44e0d060 30000"));
    m_sinceRelease.start();
    setCursor(Qt::BlankCursor);
}

void Calibration::begin()
{
    g_bCalibration_Result = false;
    if (isCalibrateLevel(g_uiHMI_TEST_LEVEL))
        backUpPointercalOnce();
    if (!QGuiApplication::primaryScreen())
        return; // nothing to touch: the pass stays open until the next request
    show();
    grabMouse(); // takes it from a dialog before this one
}

int Calibration::exec()
{
    begin();
    return QDialog::exec(); // until accept()
}

void Calibration::reject() { }

// --- Touches ------------------------------------------------------------------------------------

static QPoint readAdc()
{
    const int x = numberFrom(QStringLiteral("cat /sys/class/input/input0/device/ADC_X"));
    const int y = numberFrom(QStringLiteral("cat /sys/class/input/input0/device/ADC_Y"));
    return {x, y};
}

bool Calibration::tooSoon() const
{
    return m_sinceRelease.elapsed() <= TouchPauseMs;
}

void Calibration::report(const char *form, const QPoint &position) const
{
    printf(form, position.x(), position.y(), cal.raw_x[m_index], cal.raw_y[m_index]);
}

// Halves the weight of all samples before: the last ones, with the finger at rest on the target,
// count most. Deliberate.
void Calibration::addSample(const QPoint &position)
{
    const QPoint adc = readAdc();
    QPoint &point = ga_PointCalibrationCheck[m_index];
    point = halfway(point, position);
    cal.raw_x[m_index] = halfway(cal.raw_x[m_index], adc.x());
    cal.raw_y[m_index] = halfway(cal.raw_y[m_index], adc.y());
}

void Calibration::mousePressEvent(QMouseEvent *event)
{
    if (tooSoon())
        return;
    const QPoint adc = readAdc();
    ga_PointCalibrationCheck[m_index] = event->globalPos();
    cal.raw_x[m_index] = adc.x();
    cal.raw_y[m_index] = adc.y();
    report("====   PressEvent : (%04d, %04d), ADC (%04d, %04d)====\n", event->globalPos());
}

// Moves do not bounce: a drag goes on counting while the pause runs.
void Calibration::mouseMoveEvent(QMouseEvent *event)
{
    addSample(event->globalPos());
    report("====    MoveEvent : (%04d, %04d), ADC (%04d, %04d)====\n", event->globalPos());
}

void Calibration::mouseReleaseEvent(QMouseEvent *event)
{
    if (tooSoon())
        return;
    m_sinceRelease.restart();
    addSample(event->globalPos());
    const QPoint target = m_checkTargets[size_t(m_index)];
    const QPoint offset = ga_PointCalibrationCheck[m_index] - target;
    qs_PressingPoint[m_index] = QString::asprintf("Target(%03d, %03d), offset(%+d, %+d)",
                                                  target.x(), target.y(), offset.x(), offset.y());
    report("==== ReleaseEvent : (%04d, %04d), ADC (%04d, %04d)====\n", event->globalPos());
    if (m_index >= TouchTargets - 1) {
        accept();
        return;
    }
    m_index += g_bCalibrationCheckAll ? 1 : 2;
    repaint();
}

// --- End of the pass ----------------------------------------------------------------------------

static void storeFit()
{
    float determinant;
    if (!fitCalibration(cal, &determinant)) {
        printf("ts_calibrate: determinant is too small -- %f\n", double(determinant));
        return;
    }
    const QByteArray coefficients = coefficientText(cal);
    printf("Calibration constants: %s\n", coefficients.constData());
    writePointercal(coefficients);
    g_bCalibration_Result = true;
    for (int i = 0; i < TouchTargets; ++i)
        printf("calibration end : %d (%d,%d)\n", i, ga_PointCalibrationCheck[i].x(),
               ga_PointCalibrationCheck[i].y());
}

static void judgeTouches(const Targets &targets)
{
    const CheckVerdict verdict =
        checkTouches(ga_PointCalibrationCheck, targets, checkTolerance(g_uiHMI_TEST_LEVEL),
                     g_bCalibrationCheckAll);
    g_bCalibration_Result = verdict.good;
    std::copy(verdict.legal.begin(), verdict.legal.end(), g_bCalibration_Legal);
    // At T2 a panel has left the calibration station; its file is not touched any more.
    if (!verdict.good && g_uiHMI_TEST_LEVEL != LevelT2)
        restoreLastGood();
    else if (verdict.good && g_uiHMI_TEST_LEVEL == LevelT1Check)
        backUpPointercal();
}

void Calibration::evaluate()
{
    if (isCalibrateLevel(g_uiHMI_TEST_LEVEL))
        storeFit();
    else if (isCheckLevel(g_uiHMI_TEST_LEVEL))
        judgeTouches(m_checkTargets);
}

// A hidden widget keeps its grab: without this, a touch that comes after a repeated request has
// closed the dialog could still end its pass.
void Calibration::done(int result)
{
    QDialog::done(result);
    releaseMouse();
}

void Calibration::accept()
{
    QDialog::accept();
    evaluate();
    runShell("echo 1 > /usr/local/conf/smpl_delay");
    emit workDone();
}
