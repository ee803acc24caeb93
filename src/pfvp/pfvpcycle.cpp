// The tick of the PFVP modes: one whole cycle of the running mode's items, or one poll of the
// slave. Cycles only count. They run for days in climate chambers and never stop on a failure.
#include "hwtest/selfcheck.h"
#include "mainwindow.h"
#include "pfvpexchange.h"
#include "pfvpitems.h"
#include "state/runstate.h"

using ItemTest = bool (*)();

constexpr int RdAutoItemCount = 11; // the operator judges the rest

// RD's automatic items in the order of RD_TEST. Its first nine are those of EMS_TEST.
static const ItemTest selfTests[RdAutoItemCount] = {
    rail5VPasses, rail3V3Passes, batteryPasses, rtcAgreesWithSystem, askCom1Rs232, askCom1Rs485,
    askCom2Rs485, askUsbHost,    askUsbDevice,  sramPasses,          ddrPasses};

// In the order of EMI_TEST. Deliberately not what the names say: the item shown as COM1 RS485 has
// no test and fails in every cycle, the one shown as COM2 RS485 exercises COM1, and COM2 is left
// alone. Counts taken so far compare with new ones only as long as it stays.
static const ItemTest emiTests[EmiItemCount] = {askCom1Rs232, nullptr, askCom1Rs485, askUsbHost,
                                                askUsbDevice};

struct Cycle {
    const bool &running;
    TestMode mode;
    const ItemTest *tests;
    int count;
    qint32 *pass, *fail;
};

static const Cycle cycles[] = {
    {g_bEMSTestAllow, ModeEMS, selfTests, EmsItemCount, EMS_Item_Status_Pass, EMS_Item_Status_Fail},
    {g_bEMITestAllow, ModeEMI, emiTests, EmiItemCount, EMI_Item_Status_Pass, EMI_Item_Status_Fail},
    {g_bRDAutoTestAllow, ModeRD, selfTests, RdAutoItemCount, RD_Item_Status_Pass,
     RD_Item_Status_Fail},
};

void MainWindow::PFVPTestLoop()
{
    for (const Cycle &cycle : cycles) {
        if (!cycle.running || g_uiTestMode != cycle.mode)
            continue;
        for (int i = 0; i < cycle.count; ++i) {
            const bool passed = cycle.tests[i] && cycle.tests[i]();
            ++(passed ? cycle.pass : cycle.fail)[i];
        }
        repaint();
    }
    if (g_uiTestMode == ModeSlave && g_bSlaveModeAllow)
        answerPeer();
}
