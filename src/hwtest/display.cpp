// Colours and backlight. A colour stays until the next request is read: the dispatcher then brings
// the information screen back.
#include "link/reply.h"
#include "mainwindow.h"
#include "state/itemrecord.h"
#include "system/command.h"

constexpr ItemIndex ColourItem = {-1, 7, 0, 7};
constexpr ItemIndex BacklightItem = {-1, 8, -1, 8};

constexpr char BacklightFull[] = "echo 100 > /sys/class/backlight/backlight/brightness";
constexpr char BacklightOff[] = "echo 0 > /sys/class/backlight/backlight/brightness";

void MainWindow::showColour(const QColor &colour)
{
    g_ShowReadWriteInfo = 0;
    setBackground(colour);
    // A palette that stays as it was asks for no repaint, and the texts would stay on a white
    // screen that is shown white.
    update();
}

// Red alone stands for the colour item; green and blue are shown for the eye.
void MainWindow::LCD_SHOW_RED()
{
    const int item = ColourItem.atLevel();
    beginTest(item);
    showColour(m_aclrBG[BgRed]);
    sendReply("9504");
    setAndRecordItem(item, ItemPassed);
}

void MainWindow::LCD_SHOW_GREEN()
{
    showColour(m_aclrBG[BgGreen]);
    sendReply("9505");
}

void MainWindow::LCD_SHOW_BLUE()
{
    showColour(m_aclrBG[BgBlue]);
    sendReply("9506");
}

void MainWindow::LCD_SHOW_RGB()
{
    const int item = ColourItem.atLevel();
    if (item < 0)
        return;
    setItem(item, ItemPassed);
    g_ShowReadWriteInfo = 0;
    g_ShowRGB_Pattern_Flag = 1;
    repaint();
    sendReply("9507");
    recordItem(item);
}

void MainWindow::ICT_LCD_SHOW_RED()
{
    showColour(m_aclrBG[BgRed]);
    repaint();
}

void MainWindow::ICT_LCD_SHOW_GREEN()
{
    showColour(m_aclrBG[BgGreen]);
    repaint();
}

void MainWindow::ICT_LCD_SHOW_BLUE()
{
    showColour(m_aclrBG[BgBlue]);
    repaint();
}

void MainWindow::LCD_SHOW_COLOR_RGB1()
{
    showColour(m_aclrBG[BgRgb1]);
}

void MainWindow::LCD_SHOW_COLOR_RGB2()
{
    showColour(m_aclrBG[BgRgb2]);
}

// The value of two digits; with the prefix neither sign nor blank passes for one. 0 or the leading
// digit's value where they are not hexadecimal.
static int colourPart(const char *digits)
{
    const char text[] = {'0', 'x', digits[0], digits[1], '\0'};
    return int(strtol(text, nullptr, 16));
}

// ":9510RRGGBB", a request without station, LRC and line end.
void MainWindow::LCD_SHOW_SPECIFIC_COLOR()
{
    showColour(QColor(colourPart(UART_Buffer + 5), colourPart(UART_Buffer + 7),
                      colourPart(UART_Buffer + 9)));
    sendReply("9510");
}

// 100 and 0 are the two tests; they pass without a measurement, for a camera or the operator judges
// the panel. -1 only restores.
void MainWindow::HMI_ICT_TEST_LCM_BL(int iPercentage)
{
    const int item = BacklightItem.atLevel();
    if (iPercentage == -1) {
        runShell(BacklightFull);
        showColour(m_aclrBG[BgWhite]);
    } else if (iPercentage == 100 && item >= 0) {
        runShell(BacklightFull);
        showColour(m_aclrBG[BgWhite]);
        repaint();
        sendReply("9302");
        setAndRecordItem(item, ItemPassed);
    } else if (iPercentage == 0 && item >= 0) {
        setItem(item, ItemPassed);
        runShell(BacklightOff);
        showColour(m_aclrBG[BgBlack]);
        repaint();
        sendReply("9301");
        recordItem(item);
    }
}
