// What the operator's buttons of the PFVP window do. Reset and END want a second press; a start
// button takes the first one back.
#include "ict/levelflow.h"
#include "mainwindow.h"
#include "state/teststate.h"

#include <QPushButton>
#include <algorithm>

void MainWindow::showButtons(std::initializer_list<PfvpButtonId> buttons, bool shown)
{
    for (PfvpButtonId id : buttons)
        m_pfvpButtons[id]->setVisible(shown);
}

void MainWindow::labelButtons(std::initializer_list<PfvpLabel> labels)
{
    for (const PfvpLabel &label : labels)
        m_pfvpButtons[label.button]->setText(QLatin1String(label.text));
}

template <int Count> static void clearCounters(qint32 (&pass)[Count], qint32 (&fail)[Count])
{
    std::fill(std::begin(pass), std::end(pass), 0);
    std::fill(std::begin(fail), std::end(fail), 0);
}

// --- Cycles --------------------------------------------------------------------------------------

struct MainWindow::StartStop {
    PfvpButtonId button;
    const char *startText, *stopText;
    bool &running;
    TestMode mode;
    quint32 &resetCount, &backCount;
    PfvpButtonId reset;
    std::initializer_list<PfvpButtonId> others; // out of reach while the cycle runs
};

// END keeps its text when a start disarms it; only Reset's is restored.
void MainWindow::startStop(const StartStop &cycle)
{
    cycle.running = !cycle.running;
    if (cycle.running) {
        g_uiTestMode = cycle.mode;
        cycle.resetCount = cycle.backCount = 0;
        labelButtons({{cycle.button, cycle.stopText}, {cycle.reset, ResetText}});
    } else {
        labelButtons({{cycle.button, cycle.startText}});
    }
    showButtons(cycle.others, !cycle.running);
    repaint();
}

void MainWindow::EMSStartStopButton()
{
    startStop({EmsStartButton,
               EmsStartText,
               "EMS Stop Test",
               g_bEMSTestAllow,
               ModeEMS,
               g_uiResetCunt,
               g_uiBackCunt,
               EmsEmiResetButton,
               {EmiStartButton, EmsEmiResetButton, EmsEmiBackButton}});
}

void MainWindow::EMIStartStopButton()
{
    startStop({EmiStartButton,
               EmiStartText,
               "EMI Stop Test",
               g_bEMITestAllow,
               ModeEMI,
               g_uiResetCunt,
               g_uiBackCunt,
               EmsEmiResetButton,
               {EmsStartButton, EmsEmiResetButton, EmsEmiBackButton}});
}

void MainWindow::RDAutoStartStopButton()
{
    startStop({RdAutoButton,
               AutoStartText,
               "Auto Stop",
               g_bRDAutoTestAllow,
               ModeRD,
               g_uiRDResetCunt,
               g_uiRDBackCunt,
               RdResetButton,
               {RdManualButton, RdResetButton, RdBackButton}});
}

// --- Reset and END -------------------------------------------------------------------------------

// The count stays after the confirming press, deliberately: until the next start every further
// press clears at once.
void MainWindow::ResetButton()
{
    const bool confirmed = ++g_uiResetCunt > 1;
    if (confirmed) {
        clearCounters(EMS_Item_Status_Pass, EMS_Item_Status_Fail);
        clearCounters(EMI_Item_Status_Pass, EMI_Item_Status_Fail);
    } else {
        g_bEMSTestAllow = g_bEMITestAllow = false;
    }
    labelButtons({{EmiStartButton, EmiStartText},
                  {EmsStartButton, EmsStartText},
                  {EmsEmiResetButton, confirmed ? ResetText : ResetArmedText}});
    repaint();
}

void MainWindow::BackButton()
{
    if (++g_uiBackCunt > 1) {
        close();
    } else {
        g_bEMSTestAllow = g_bEMITestAllow = false;
        labelButtons({{EmiStartButton, EmiStartText},
                      {EmsStartButton, EmsStartText},
                      {EmsEmiBackButton, "Sure!! END TEst"}}); // deliberate spelling
    }
    repaint();
}

// Neither RD confirmation stops an automatic cycle, unlike those of EMS and EMI, although the texts
// then say that none runs. Deliberate: reliability runs are ended by their own button only.
void MainWindow::RDResetButton()
{
    const bool confirmed = ++g_uiRDResetCunt > 1;
    if (confirmed)
        clearCounters(RD_Item_Status_Pass, RD_Item_Status_Fail);
    labelButtons({{RdAutoButton, AutoStartText},
                  {RdManualButton, ManualStartText},
                  {RdResetButton, confirmed ? ResetText : ResetArmedText},
                  {RdBackButton, EndText}});
    repaint();
}

void MainWindow::RDBackButton()
{
    if (++g_uiRDBackCunt > 1)
        close();
    else
        labelButtons({{RdAutoButton, AutoStartText},
                      {RdManualButton, ManualStartText},
                      {RdResetButton, ResetText},
                      {RdBackButton, "Sure!! END"}});
    repaint();
}

// --- Slave ---------------------------------------------------------------------------------------

// There is no way back: the mode ends with the program.
void MainWindow::StartSlaveModeButton()
{
    if (!g_bSlaveModeAllow) {
        g_bSlaveModeAllow = true;
        showButtons({SlaveStartButton, SlaveGotoT1Button}, false);
    }
    repaint();
}

// The way back into production, for a panel that has been through an environmental test.
void MainWindow::GotoT1Button()
{
    if (!g_bGotoT1ModeAllow) {
        showButtons({SlaveGotoT1Button, SlaveStartButton}, false);
        g_bGotoT1ModeAllow = goBackToT1();
    }
    repaint();
}
