// The PFVP screen: items with their counters, or the slave's status. The buttons draw themselves.
#include "mainwindow.h"
#include "screen/drawtext.h"
#include "state/teststate.h"

#include <cstdio>

constexpr int TitleY = 40, HeaderY = 80, FirstRowY = 110, RowStep = 30; // base lines

// Left ends of a table's columns.
struct TableColumns {
    int name, separator, pass, fail;
};
static const TableColumns leftTable = {10, 150, 170, 270};
static const TableColumns rightTable = {410, 560, 575, 675};

struct ItemCounts {
    const QString *names;
    const qint32 *pass, *fail;
};
static const ItemCounts emsCounts = {EMS_TEST, EMS_Item_Status_Pass, EMS_Item_Status_Fail};
static const ItemCounts emiCounts = {EMI_TEST, EMI_Item_Status_Pass, EMI_Item_Status_Fail};
static const ItemCounts rdCounts = {RD_TEST, RD_Item_Status_Pass, RD_Item_Status_Fail};

static void drawTitle(QPainter &painter, const QPoint &at, const char *text)
{
    painter.setFont(paintFont1);
    drawText(painter, at, Qt::darkRed, QString::fromLatin1(text));
}

static void drawCount(QPainter &painter, const QPoint &at, const QColor &pen, qint32 count)
{
    snprintf(PFVP_ShowPassFailInInfo, sizeof PFVP_ShowPassFailInInfo, "%7d", count);
    drawText(painter, at, pen, QString::fromLatin1(PFVP_ShowPassFailInInfo));
}

// The items from `first` up to `end`, under their headers.
static void drawTable(QPainter &painter, const TableColumns &x, const ItemCounts &items, int first,
                      int end)
{
    painter.setFont(paintFont2);
    drawText(painter, {x.name, HeaderY}, Qt::darkGreen, QStringLiteral("|  Test Case"));
    drawText(painter, {x.separator, HeaderY}, Qt::darkGreen,
             QStringLiteral("|   Pass   |   Fail   |"));
    for (int i = first; i < end; ++i) {
        const int y = FirstRowY + RowStep * (i - first);
        drawText(painter, {x.name, y}, Qt::black, items.names[i]);
        drawText(painter, {x.separator, y}, Qt::black, QStringLiteral(":"));
        drawCount(painter, {x.pass, y}, Qt::blue, items.pass[i]);
        drawCount(painter, {x.fail, y}, Qt::red, items.fail[i]);
    }
}

// Both tables while idle, the running one alone during a cycle.
static void drawEmsEmi(QPainter &painter)
{
    const bool running = g_bEMSTestAllow || g_bEMITestAllow;
    if (!running || g_uiTestMode == ModeEMS) {
        drawTitle(painter, {leftTable.name, TitleY}, "==== PFVP EMS Test Case ====");
        drawTable(painter, leftTable, emsCounts, 0, EmsItemCount);
    }
    if (!running || g_uiTestMode == ModeEMI) {
        drawTitle(painter, {rightTable.name, TitleY}, "==== PFVP EMI Test Case ====");
        drawTable(painter, rightTable, emiCounts, 0, EmiItemCount);
    }
}

static void drawRd(QPainter &painter)
{
    constexpr int LeftItems = 10;
    drawTitle(painter, {leftTable.name, TitleY},
              "==================== PFVP RD Test Case ====================");
    drawTable(painter, leftTable, rdCounts, 0, LeftItems);
    drawTable(painter, rightTable, rdCounts, LeftItems, RdItemCount);
}

// The two never apply together as the buttons stand; where they did, they would overlap.
static void drawSlave(QPainter &painter)
{
    if (g_bSlaveModeAllow)
        drawTitle(painter, {320, 240}, "SlaveMode Start.....");
    if (g_bGotoT1ModeAllow)
        drawTitle(painter, {250, 240}, "GotoT1 To ReTesting (Please Re-Boot)");
}

void MainWindow::PFVPpaintEvent()
{
    if (!g_ShowReadWriteInfo)
        return; // the background is the test pattern
    QPainter painter(this);
    switch (g_uiTestMode) {
    case ModeEMS:
    case ModeEMI:
        drawEmsEmi(painter);
        break;
    case ModeRD:
        drawRd(painter);
        break;
    case ModeSlave:
        drawSlave(painter);
        break;
    }
}
