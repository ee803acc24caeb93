// The process-wide test state. Every room of the agent reads and writes these variables, on the GUI
// thread only, so no lock guards them. Declared here once, defined in teststate.cpp once.
#pragma once

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QPoint>
#include <QRect>
#include <QString>

class QProcess;
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

// --- Touch calibration --------------------------------------------------------------------------

constexpr int TouchTargets = 5;

struct CalibrationRecord {
    qint32 raw_x[TouchTargets], screen_x[TouchTargets]; // of target i: ADC value, pixel
    qint32 raw_y[TouchTargets], screen_y[TouchTargets];
    qint32 coeff[7]; // c0 to c6 of the last fit; all zero while there is none
};
static_assert(sizeof(CalibrationRecord) == 27 * sizeof(qint32));

extern CalibrationRecord cal; // points and result of the calibration pass
extern QPoint ga_PointCalibrationCheck[TouchTargets]; // pixel touched at target i in this pass
extern bool g_bCalibrationCheckAll; // false: targets 1 and 3 are neither shown nor judged
extern bool g_bCalibration_Result; // verdict of the last calibration or check
extern bool g_bCalibration_Legal[TouchTargets]; // target i was hit within the tolerance
extern QString qs_PressingPoint[TouchTargets]; // a line a target for the ICT screen

// --- Station, identity, product application -----------------------------------------------------

constexpr int LinkBufferSize = 40; // every text of the PC link, its NUL included
constexpr int AppInfoSize = 60;
constexpr int VersionTextLength = 11; // the version text sent, up to and with its line feed

extern int g_iSTATION_NUM; // station number on the PC link, 0 outside BI
extern char gc_SN[3]; // the same as two hexadecimal digits
extern int g_FactoryInfo; // FactoryInfo of hwtest/factory.h
extern char HMIFWVersion[20]; // version template; places 0 and 2 to 5 come from the application
extern char HMIAppModel[AppInfoSize]; // "Model=KLV-..." line of the product application
extern char HMIAppVersion[AppInfoSize]; // "Version=..." line of the product application
extern int Chk_BB_result; // backup root file system: -1 not yet known, else 0 to 3
extern QProcess *Process_WriteMac, *Process_Chk_BB; // made on first need, kept for the run

// --- PC link ------------------------------------------------------------------------------------

extern char UART_Buffer[LinkBufferSize]; // request as received
extern char UART_ChkStr[LinkBufferSize]; // its command code
extern char UART_Buffer_ShowInInfo[LinkBufferSize]; // last request, for screen and log
extern char UART_Buffer_ShowOutInfo[LinkBufferSize]; // last reply, for screen and log

// Port descriptors, 0 or -1 when closed. A mode with one wire pair holds one descriptor in both.
extern qint32 Com1OpenRS232_R_fd2, Com1OpenRS232_W_fd2;
extern qint32 Com1OpenRS4xx_R_fd2, Com1OpenRS4xx_W_fd2;
extern qint32 Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2;
extern qint32 Com3OpenRS4xx_R_fd2, Com3OpenRS4xx_W_fd2;
extern qint32 ttyUSB0_fd, ttyGS0_fd;

// --- Screen -------------------------------------------------------------------------------------

extern int g_ShowReadWriteInfo; // 1 information screen, 0 a test pattern fills the window
extern int g_ShowRGB_Pattern_Flag; // the pattern is the three colour bands
extern int g_showAllTPCalPoints; // the pattern is the five touch points
extern bool gb_ShowCalibrationPoint, gb_ShowRTCInfo, gb_ShowTPInfo; // one-shot extra lines
extern QString qs_RTC_HMI_TIME, qs_TP_HMI; // their texts
extern char PFVP_ShowPassFailInInfo[LinkBufferSize];

enum BackgroundColour { BgRed, BgBlue, BgGreen, BgWhite, BgRgb1, BgRgb2, BgBlack };
extern QColor m_aclrBG[7];
void makeColours(); // fills it; both windows do before they paint
extern QColor m_clrOrig;
extern QRect rc_RED, rc_GRN, rc_BLU;
extern const QBrush paintBlackBrush, paintWhiteBrush;

constexpr int paintItemWordSize = 18; // line step of the item list, pixels
constexpr int paintCaliWordSize = 20; // line step of the calibration lines, pixels
constexpr int Screen_X = 800, Screen_Y = 480;
constexpr int Rect_TopLeft_X = 8, Rect_TopLeft_Y = 8;
constexpr int Rect_DownRight_X = Screen_X - 40, Rect_DownRight_Y = Screen_Y - 40;

// Left ends of base lines, in pixels.
extern const QPoint paintLevelPt, paintItemPt, paintBIStationPt;
extern const QPoint paintReceiveLabelPt, paintReceiveDataPt;
extern const QPoint paintReturnLabelPt, paintReturnDataPt;
extern const QPoint paintExtendPt, paintTalktoUser, paintTalktoUser_line2;

extern QFont paintFont1, paintFont2, paintFont3, paintFont4, paintFont5, paintFont6_TalktoUser;

// Makes the fonts above. A QFont takes its resolution from the application object, so this waits
// until there is one.
void makePaintFonts();

extern QTimer *m_hTimer; // drives ICTTestLoop or PFVPTestLoop; owned by the window
