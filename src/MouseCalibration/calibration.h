// The full-screen dialog of touch calibration: shows one target at a time and takes the touched
// pixel and the raw ADC values of it. What becomes of the five points is up to the test level at
// the time (g_uiHMI_TEST_LEVEL), which must not change while the dialog is up.
//
// A dialog serves one pass. It lives on the GUI thread, as every widget. Its results are the
// globals of the test state: cal, ga_PointCalibrationCheck, qs_PressingPoint, g_bCalibration_Legal
// and g_bCalibration_Result.
#pragma once

#include "calibrationmath.h"
#include "state/runstate.h"

#include <QDialog>
#include <QElapsedTimer>
#include <QFont>

class Calibration : public QDialog {
    Q_OBJECT

public:
    explicit Calibration(QWidget *parent = nullptr);

    // Shows the dialog with the mouse grabbed, and returns at once; workDone() ends the pass.
    void begin();

    // The same, returning when the dialog has ended: the dialog's result.
    int exec() override;

    // Ends the pass: closes, judges the points, then reports.
    void accept() override;

    // Closes and lets the mouse go: a closed dialog takes no touch.
    void done(int result) override;

    // Does nothing: a pass ends at its last target and nowhere else. Whoever asked for it is owed
    // a verdict, so neither Escape nor a window manager closes the dialog; its owner does, by
    // done().
    void reject() override;

signals:
    void workDone();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    bool tooSoon() const;
    void addSample(const QPoint &position);
    void report(const char *form, const QPoint &position) const;
    void evaluate();
    void drawTitle(QPainter &painter) const;
    void drawTarget(QPainter &painter) const;
    void drawMarks(QPainter &painter) const;
    QPoint labelPlace(const QPainter &painter, const QString &label, int index,
                      const QPoint &at) const;

    Targets m_calibrationTargets;
    Targets m_checkTargets;
    int m_index = 0; // of the current target
    QElapsedTimer m_sinceRelease; // since the last accepted one, or since the dialog was made
    int m_width, m_height; // of the screen, in pixels
    QFont m_titleFont, m_labelFont;
};
