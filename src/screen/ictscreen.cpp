// The ICT screen: paints the shared state, keeps nothing between calls, and clears the one-shot
// requests it has served.
#include "ictscreen.h"

#include "drawtext.h"
#include "mainwindow.h"
#include "state/teststate.h"

#include <QImage>
#include <QPainter>
#include <cstring>

// --- Pattern face --------------------------------------------------------------------------------

static void fillCentred(QPainter &painter, const QPoint &centre, int width, int height,
                        const QBrush &brush)
{
    painter.fillRect(centre.x() - width / 2, centre.y() - height / 2, width, height, brush);
}

void MainWindow::paintPattern(QPainter &painter) const
{
    if (g_ShowRGB_Pattern_Flag) {
        painter.fillRect(rc_RED, m_aclrBG[BgRed]);
        painter.fillRect(rc_GRN, m_aclrBG[BgGreen]);
        painter.fillRect(rc_BLU, m_aclrBG[BgBlue]);
    } else if (g_showAllTPCalPoints) {
        for (const QPoint &point : m_touchPoints) {
            fillCentred(painter, point, 32, 32, QBrush(Qt::green));
            fillCentred(painter, point, 16, 4, paintBlackBrush);
            fillCentred(painter, point, 4, 16, paintBlackBrush);
        }
    }
    // Otherwise the window's background is the pattern.
}

// --- Information face ----------------------------------------------------------------------------

// Where a unit's case is checked against the glass: a white cross on black.
static void drawCornerTarget(QPainter &painter, int x, int y)
{
    painter.fillRect(x, y, 32, 32, paintBlackBrush);
    painter.fillRect(x + 14, y + 8, 4, 16, paintWhiteBrush);
    painter.fillRect(x + 8, y + 14, 16, 4, paintWhiteBrush);
}

constexpr char ReceiveLabel[] = "[HMI Receive Data]", ReturnLabel[] = "[Return PC Data]";

// By level. T1 and T2 begin with six blanks in place of the bar, deliberately.
static const struct {
    Qt::GlobalColor pen;
    const char *text;
} headers[] = {{Qt::darkRed, "===== Ostra HMI KLV-100 ICT Test ====="},
               {Qt::red, "      Ostra HMI KLV-100 T1 Test ====="},
               {Qt::magenta, "===== Ostra HMI KLV-100 BI Test ====="},
               {Qt::blue, "      Ostra HMI KLV-100 T2 Test ====="}};

void loadGlyphs()
{
    QImage nowhere(1, 1, QImage::Format_RGB32);
    QPainter painter(&nowhere);
    painter.setFont(paintFont1);
    painter.drawText(0, 0, QString::fromLatin1(headers[LevelICT].text));
    painter.setFont(paintFont2);
    for (const QString &line : ICT_Item_UnPASS)
        painter.drawText(0, 0, line);
    painter.setFont(paintFont3);
    for (const char *label : {ReceiveLabel, ReturnLabel})
        painter.drawText(0, 0, QString::fromLatin1(label));
}

static void drawHeader(QPainter &painter)
{
    if (g_uiHMI_TEST_LEVEL > LevelT2)
        return;
    const auto &header = headers[g_uiHMI_TEST_LEVEL];
    painter.setFont(paintFont1);
    drawText(painter, paintLevelPt, header.pen, QString::fromLatin1(header.text));
    if (g_uiHMI_TEST_LEVEL == LevelT1 || g_uiHMI_TEST_LEVEL == LevelT2) {
        drawCornerTarget(painter, Rect_TopLeft_X, Rect_TopLeft_Y);
        drawCornerTarget(painter, Rect_DownRight_X, Rect_DownRight_Y);
    } else if (g_uiHMI_TEST_LEVEL == LevelBI) {
        drawText(painter, paintBIStationPt, Qt::blue, QString::asprintf("SN:(%d)", g_iSTATION_NUM));
    }
}

static void drawItems(QPainter &painter)
{
    painter.setFont(paintFont2);
    for (int i = 0; i < TEST_ITEM; ++i) {
        const QPoint at = paintItemPt + QPoint(0, i * paintItemWordSize);
        if (Item_Status[i] == ItemPassed)
            drawText(painter, at, Qt::blue, Item_PASS[i]);
        else
            drawText(painter, at, Item_Status[i] == ItemRunning ? Qt::red : Qt::black,
                     Item_UnPASS[i]);
    }
}

// Cuts the line end off the echo buffer itself, deliberately: from its first paint on the buffer
// holds what is shown, and a record that the log takes later has the text without its line end.
static void cutLineEnd(char (&text)[LinkBufferSize])
{
    const size_t length = strlen(text);
    if (length < 2 || text[length - 1] != '\n')
        return;
    text[text[length - 2] == '\r' ? length - 2 : length - 1] = '\0';
}

static void drawTraffic(QPainter &painter)
{
    painter.setFont(paintFont3);
    cutLineEnd(UART_Buffer_ShowInInfo);
    drawText(painter, paintReceiveLabelPt, Qt::magenta, QString::fromLatin1(ReceiveLabel));
    drawText(painter, paintReceiveDataPt, Qt::magenta, QString::fromLatin1(UART_Buffer_ShowInInfo));
    cutLineEnd(UART_Buffer_ShowOutInfo);
    drawText(painter, paintReturnLabelPt, Qt::blue, QString::fromLatin1(ReturnLabel));
    drawText(painter, paintReturnDataPt, Qt::blue, QString::fromLatin1(UART_Buffer_ShowOutInfo));
}

static void drawCalibrationPoints(QPainter &painter)
{
    painter.setFont(paintFont4);
    for (int i = 0; i < TouchTargets; ++i)
        drawText(painter, paintExtendPt + QPoint(0, i * paintCaliWordSize),
                 g_bCalibration_Legal[i] ? Qt::blue : Qt::red, qs_PressingPoint[i]);
}

static void drawExtraLine(QPainter &painter, const QString &text)
{
    painter.setFont(paintFont5);
    drawText(painter, paintExtendPt, Qt::blue, text);
}

static void drawT1Conditions(QPainter &painter)
{
    static const struct {
        quint8 bit;
        const char *name;
    } conditions[] = {{T1ExternRebooted, "Power on/off"}, {T1ExternRtcChecked, "RTC Check"}};
    painter.setFont(paintFont2);
    QPoint at = paintExtendPt;
    for (const auto &condition : conditions) {
        const bool met = T1_Extern_Item_Flag & condition.bit;
        at.ry() += paintItemWordSize;
        drawText(painter, at, met ? Qt::blue : Qt::red,
                 QLatin1String(met ? "O " : "X ") + QLatin1String(condition.name));
    }
}

// True once for each request.
static bool take(bool &request)
{
    const bool requested = request;
    request = false;
    return requested;
}

void MainWindow::ICTpaintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (!g_ShowReadWriteInfo) {
        paintPattern(painter);
        return;
    }
    drawHeader(painter);
    drawItems(painter);
    drawTraffic(painter);
    if (take(gb_ShowCalibrationPoint))
        drawCalibrationPoints(painter);
    if (take(gb_ShowRTCInfo))
        drawExtraLine(painter, qs_RTC_HMI_TIME);
    if (take(gb_ShowTPInfo))
        drawExtraLine(painter, qs_TP_HMI);
    if (take(gb_ShowT1ExternItem))
        drawT1Conditions(painter);
}
