// The RD manual sequence: what the operator judges with PASS and FAIL, step by step.
#include "mainwindow.h"
#include "state/teststate.h"
#include "system/command.h"
#include "system/files.h"
#include "system/inputevent.h"

#include <QPushButton>
#include <QThread>
#include <fcntl.h>

constexpr quint32 FirstManualItem = 11; // index in the RD tables
constexpr int BuzzerS = 2;

struct MainWindow::ManualStep {
    void (MainWindow::*run)(); // then the operator is asked
    const char *passText;
    const char *failText; // null: FAIL is not offered
};

// The fourth step is the touch panel's own test: hitting the one button on the blank screen counts
// as its pass, so it cannot fail, and goes on to the backlight.
const MainWindow::ManualStep MainWindow::manualSteps[ManualStepCount] = {
    {&MainWindow::PFVP_LCD_SHOW_RED, "Show Red", "Not Show Red"},
    {&MainWindow::PFVP_LCD_SHOW_GREEN, "Show Green", "Not Show Green"},
    {&MainWindow::PFVP_LCD_SHOW_BLUE, "Show Blue", "Not Show Blue"},
    {&MainWindow::PFVP_TP_TEST, "Test BackLight", nullptr},
    {&MainWindow::PFVP_LCM_BL, "BackLight PASS", "BackLight FAIL"},
    {&MainWindow::soundPfvpBuzzer, "Buzzer PASS", "Buzzer FAIL"},
};

void MainWindow::enterManualStep(const ManualStep &step)
{
    (this->*step.run)();
    labelButtons({{RdPassButton, step.passText}});
    if (step.failText)
        labelButtons({{RdFailButton, step.failText}});
    showButtons({RdPassButton}, true);
    showButtons({RdFailButton}, step.failText);
}

void MainWindow::RDManualStartStopButton()
{
    g_uiTestMode = ModeRD;
    g_uiRDResetCunt = g_uiRDBackCunt = 0;
    labelButtons({{RdManualButton, "Manual Stop"}, {RdResetButton, ResetText}});
    showButtons({RdManualButton, RdAutoButton, RdResetButton, RdBackButton}, false);
    g_uiRDManualCunt = 0;
    enterManualStep(manualSteps[0]);
    repaint();
}

void MainWindow::judgeManualStep(qint32 *counts)
{
    if (g_uiRDManualCunt < ManualStepCount)
        ++counts[FirstManualItem + g_uiRDManualCunt];
    ++g_uiRDManualCunt;
    if (g_uiRDManualCunt < ManualStepCount) {
        enterManualStep(manualSteps[g_uiRDManualCunt]);
    } else {
        showButtons({RdPassButton, RdFailButton}, false);
        showButtons({RdAutoButton, RdManualButton, RdResetButton, RdBackButton}, true);
        g_ShowReadWriteInfo = 1;
    }
    repaint();
}

void MainWindow::RDManualPASSButton()
{
    judgeManualStep(RD_Item_Status_Pass);
}

void MainWindow::RDManualFAILButton()
{
    judgeManualStep(RD_Item_Status_Fail);
}

// --- Steps ---------------------------------------------------------------------------------------

void MainWindow::fillScreen(BackgroundColour colour)
{
    g_ShowReadWriteInfo = 0;
    setBackground(m_aclrBG[colour]);
}

void MainWindow::PFVP_LCD_SHOW_RED()
{
    fillScreen(BgRed);
}

void MainWindow::PFVP_LCD_SHOW_GREEN()
{
    fillScreen(BgGreen);
}

void MainWindow::PFVP_LCD_SHOW_BLUE()
{
    fillScreen(BgBlue);
}

void MainWindow::PFVP_TP_TEST()
{
    fillScreen(BgWhite);
}

// Down and up again, 12 s in all. The window stands still meanwhile.
void MainWindow::PFVP_LCM_BL()
{
    static const struct {
        int percent;
        unsigned long seconds;
    } ramp[] = {{100, 1}, {80, 1}, {60, 1}, {40, 1}, {20, 1}, {0, 2},
                {20, 1},  {40, 1}, {60, 1}, {80, 1}, {100, 1}};
    for (const auto &level : ramp) {
        runShell(QByteArray("echo ")
                     .append(QByteArray::number(level.percent))
                     .append(" > /sys/class/backlight/backlight/brightness")
                     .constData());
        QThread::sleep(level.seconds);
    }
}

void MainWindow::soundPfvpBuzzer()
{
    showButtons({RdFailButton}, false);
    labelButtons({{RdPassButton, "Test Buzzer"}});
    File buzzer(BuzzerDevice, O_RDWR);
    if (!buzzer.isOpen())
        return;
    buzzerOn(buzzer.fd());
    QThread::sleep(BuzzerS);
    buzzerOff(buzzer.fd());
}
