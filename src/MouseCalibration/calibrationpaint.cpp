// What the calibration dialog shows: the current target, and at a check the touches so far.
#include "calibration.h"

#include "screen/drawtext.h"

constexpr int LabelDistance = 32; // of a label from its point, in pixels

// 16 x 4 and 4 x 16 pixels around the point.
static void drawCross(QPainter &painter, const QPoint &at, const QColor &colour)
{
    painter.fillRect(at.x() - 8, at.y() - 2, 16, 4, colour);
    painter.fillRect(at.x() - 2, at.y() - 8, 4, 16, colour);
}

static QString coordinates(const QPoint &point)
{
    return QString::asprintf("(%d,%d)", point.x(), point.y());
}

static int widthOf(const QPainter &painter, const QString &text)
{
    return painter.fontMetrics().horizontalAdvance(text);
}

void Calibration::drawTitle(QPainter &painter) const
{
    const QString title = QStringLiteral("Ostra HMI Touch PointCheck");
    painter.setFont(m_titleFont);
    drawText(painter, QPoint(m_width / 2 - widthOf(painter, title) / 2, m_height / 4), Qt::blue,
             title);
}

// Left end of the base line of the label of target `index` whose cross is at `at`: below the upper
// targets and the centre, above the lower ones. Where the targets are close to the edges, a
// corner's label stands beside its cross, towards the middle of the screen.
QPoint Calibration::labelPlace(const QPainter &painter, const QString &label, int index,
                               const QPoint &at) const
{
    enum Side { Centred, Right, Left };
    static const Side sides[TouchTargets] = {Right, Left, Left, Right, Centred};
    const int width = widthOf(painter, label);
    const Side side = g_uiHMI_TEST_LEVEL == LevelAppCheck ? Centred : sides[index];
    int x = at.x() - width / 2;
    if (side == Right)
        x = at.x() + LabelDistance;
    else if (side == Left)
        x = at.x() - LabelDistance - width;
    const bool above = index == 2 || index == 3;
    return {qBound(0, x, qMax(0, m_width - width)),
            at.y() + (above ? -LabelDistance : LabelDistance)};
}

void Calibration::drawTarget(QPainter &painter) const
{
    if (!isCheckLevel(g_uiHMI_TEST_LEVEL)) {
        const QPoint target = m_calibrationTargets[size_t(m_index)];
        const QString label = coordinates(target);
        drawCross(painter, target, Qt::black);
        drawText(painter, target + QPoint(-widthOf(painter, label) / 2, LabelDistance), Qt::black,
                 label);
        return;
    }
    const QPoint target = m_checkTargets[size_t(m_index)];
    const QString label = coordinates(target);
    drawCross(painter, target, Qt::blue);
    drawText(painter, labelPlace(painter, label, m_index, target), Qt::blue, label);
}

// A hit is marked at its target, a miss where it was touched.
void Calibration::drawMarks(QPainter &painter) const
{
    painter.setFont(m_labelFont);
    for (int i = 0; i < m_index; ++i) {
        if (!isJudged(i, g_bCalibrationCheckAll))
            continue;
        const QPoint touched = ga_PointCalibrationCheck[i];
        const QPoint target = m_checkTargets[size_t(i)];
        const QPoint mark =
            isHit(touched, target, checkTolerance(g_uiHMI_TEST_LEVEL)) ? target : touched;
        const QString label = QString::asprintf("P%d", i + 1) + coordinates(mark);
        drawText(painter, labelPlace(painter, label, i, mark), Qt::darkRed, label);
        drawCross(painter, mark, Qt::darkRed);
    }
}

void Calibration::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    drawTitle(painter);
    drawTarget(painter);
    if (isCheckLevel(g_uiHMI_TEST_LEVEL))
        drawMarks(painter);
}
