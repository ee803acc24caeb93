// What runs: mode, level, items and their results, the operator's permissions.
#pragma once

#include <QString>

class QTimer;

// --- Run mode and test level -----------------------------------------------------------------

enum TestMode : quint32 { ModeICT = 0, ModeEMS = 1, ModeEMI = 2, ModeRD = 3, ModeSlave = 4 };

enum TestLevel : quint32 {
    LevelICT = 0,
    LevelT1 = 1,
    LevelBI = 2,
    LevelT2 = 3,
    LevelT1Check = 253, // checking the calibration that "9000"/"9004" has just made
    LevelAppCheck = 254, // second dialog of the calibration run mode
    LevelAppCalibrate = 255 // first dialog of the calibration run mode
};

constexpr int IctItemCount = 16;
constexpr int T1ItemCount = 19;
constexpr int BiItemCount = 6;
constexpr int T2ItemCount = 17;

extern quint32 g_uiTestMode; // TestMode, set by main(); EMS, EMI and RD start buttons switch it
extern quint32 g_uiHMI_TEST_LEVEL; // TestLevel of this run; a level change on disk takes a restart
extern char gc_LEVEL[5]; // text of the level file while it is read or created
extern qint32 TEST_ITEM; // items of the active level
extern char g_HMI_TEST_File[37]; // path of the active level's flag file
extern int fp_TEST_Flag; // flag file while it is open; never open between calls
extern char Test_Ret_Char[2]; // [0] written for "not passed", [1] for "passed"

// --- Items: status 0 not passed, 1 passed, -1 running or failed in this run --------------------

enum ItemState : qint32 { ItemRunning = -1, ItemNotPassed = 0, ItemPassed = 1 };

extern qint32 ICT_Item_Status[IctItemCount];
extern qint32 T1_Item_Status[T1ItemCount];
extern qint32 BI_Item_Status[BiItemCount];
extern qint32 T2_Item_Status[T2ItemCount];

extern const QString ICT_Item_UnPASS[IctItemCount], ICT_Item_PASS[IctItemCount];
extern const QString T1_Item_UnPASS[T1ItemCount], T1_Item_PASS[T1ItemCount];
extern const QString BI_Item_UnPASS[BiItemCount], BI_Item_PASS[BiItemCount];
extern const QString T2_Item_UnPASS[T2ItemCount], T2_Item_PASS[T2ItemCount];

// The active level's tables, TEST_ITEM entries each; null until the boot has chosen a level.
extern qint32 *Item_Status;
extern const QString *Item_PASS;
extern const QString *Item_UnPASS;

// --- PFVP items with their counters -----------------------------------------------------------

constexpr int EmsItemCount = 9;
constexpr int EmiItemCount = 5;
constexpr int RdItemCount = 17;

extern const QString EMS_TEST[EmsItemCount], EMI_TEST[EmiItemCount], RD_TEST[RdItemCount];
extern qint32 EMS_Item_Status_Pass[EmsItemCount], EMS_Item_Status_Fail[EmsItemCount];
extern qint32 EMI_Item_Status_Pass[EmiItemCount], EMI_Item_Status_Fail[EmiItemCount];
extern qint32 RD_Item_Status_Pass[RdItemCount], RD_Item_Status_Fail[RdItemCount];

// --- Extended T1 check ------------------------------------------------------------------------

constexpr quint8 T1ExternRebooted = 1; // booted since the RTC was last set
constexpr quint8 T1ExternRtcChecked = 2; // the RTC check passed at T1
constexpr quint8 T1ExternAll = T1ExternRebooted | T1ExternRtcChecked;

extern quint8 T1_Extern_Item_Flag;
extern bool gb_ShowT1ExternItem;

// --- Permissions and press counters of the operator's buttons -----------------------------------

extern bool g_bTestAllow; // the dispatcher polls the PC link; an end check clears it for good
extern bool g_bSlaveModeAllow; // the slave responder runs
extern bool g_bGotoT1ModeAllow; // the level file says T1 by the goto-T1 button
extern bool g_bEMSTestAllow, g_bEMITestAllow, g_bRDAutoTestAllow; // that cycle runs
extern quint32 g_uiRDManualCunt; // step of the RD manual sequence, 0 to 6
extern quint32 g_uiResetCunt, g_uiBackCunt, g_uiRDResetCunt, g_uiRDBackCunt; // presses since start

extern QTimer *m_hTimer; // drives ICTTestLoop or PFVPTestLoop; owned by the window
