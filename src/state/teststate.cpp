#include "teststate.h"

#include <QTimer>

quint32 g_uiTestMode = ModeICT;
quint32 g_uiHMI_TEST_LEVEL = LevelICT;
char gc_LEVEL[5];
qint32 TEST_ITEM = 0;
char g_HMI_TEST_File[37];
int fp_TEST_Flag = 0;
char Test_Ret_Char[2];

qint32 *Item_Status = nullptr;
const QString *Item_PASS = nullptr;
const QString *Item_UnPASS = nullptr;

quint8 T1_Extern_Item_Flag = 0;
bool gb_ShowT1ExternItem = false;

bool g_bTestAllow = true;
bool g_bSlaveModeAllow = false;
bool g_bGotoT1ModeAllow = false;
bool g_bEMSTestAllow = false;
bool g_bEMITestAllow = false;
bool g_bRDAutoTestAllow = false;
quint32 g_uiRDManualCunt = 0;
quint32 g_uiResetCunt = 0;
quint32 g_uiBackCunt = 0;
quint32 g_uiRDResetCunt = 0;
quint32 g_uiRDBackCunt = 0;

CalibrationRecord cal;
QPoint ga_PointCalibrationCheck[TouchTargets];
bool g_bCalibrationCheckAll = true;
bool g_bCalibration_Result = false;
bool g_bCalibration_Legal[TouchTargets];
QString qs_PressingPoint[TouchTargets];

int g_iSTATION_NUM = 0;
char gc_SN[3];
int g_FactoryInfo = 0;
char HMIFWVersion[20] = "A.BBBB.120\n";
char HMIAppModel[AppInfoSize];
char HMIAppVersion[AppInfoSize];
int Chk_BB_result = -1;
QProcess *Process_WriteMac = nullptr;
QProcess *Process_Chk_BB = nullptr;

char UART_Buffer[LinkBufferSize];
char UART_ChkStr[LinkBufferSize];
char UART_Buffer_ShowInInfo[LinkBufferSize];
char UART_Buffer_ShowOutInfo[LinkBufferSize];

qint32 Com1OpenRS232_R_fd2 = 0;
qint32 Com1OpenRS232_W_fd2 = 0;
qint32 Com1OpenRS4xx_R_fd2 = 0;
qint32 Com1OpenRS4xx_W_fd2 = 0;
qint32 Com2OpenRS4xx_R_fd2 = 0;
qint32 Com2OpenRS4xx_W_fd2 = 0;
qint32 Com3OpenRS4xx_R_fd2 = 0;
qint32 Com3OpenRS4xx_W_fd2 = 0;
qint32 ttyUSB0_fd = 0;
qint32 ttyGS0_fd = 0;

int g_ShowReadWriteInfo = 1;
int g_ShowRGB_Pattern_Flag = 0;
int g_showAllTPCalPoints = 0;
bool gb_ShowCalibrationPoint = false;
bool gb_ShowRTCInfo = false;
bool gb_ShowTPInfo = false;
QString qs_RTC_HMI_TIME;
QString qs_TP_HMI;
char PFVP_ShowPassFailInInfo[LinkBufferSize];

QColor m_aclrBG[7];
QColor m_clrOrig;
QRect rc_RED, rc_GRN, rc_BLU;
const QBrush paintBlackBrush(Qt::black), paintWhiteBrush(Qt::white);

const QPoint paintLevelPt(40, 30);
const QPoint paintItemPt(40, 60);
const QPoint paintBIStationPt(510, 30);
const QPoint paintReceiveLabelPt(300, 100);
const QPoint paintReceiveDataPt(300, 150);
const QPoint paintReturnLabelPt(300, 220);
const QPoint paintReturnDataPt(300, 270);
const QPoint paintExtendPt(300, 320);
const QPoint paintTalktoUser(580, 100);
const QPoint paintTalktoUser_line2(580, 120);

QFont paintFont1, paintFont2, paintFont3, paintFont4, paintFont5, paintFont6_TalktoUser;

void makeColours()
{
    m_aclrBG[BgRed] = QColor(255, 0, 0);
    m_aclrBG[BgBlue] = QColor(0, 0, 255);
    m_aclrBG[BgGreen] = QColor(0, 255, 0);
    m_aclrBG[BgWhite] = m_aclrBG[BgRgb1] = QColor(255, 255, 255);
    m_aclrBG[BgRgb2] = m_aclrBG[BgBlack] = QColor(0, 0, 0);
}

void makePaintFonts()
{
    const struct {
        QFont &font;
        int points;
    } sizes[] = {{paintFont1, 18}, {paintFont2, 14}, {paintFont3, 20},
                 {paintFont4, 14}, {paintFont5, 14}, {paintFont6_TalktoUser, 16}};
    for (const auto &size : sizes)
        size.font = QFont(QStringLiteral("Ubuntu"), size.points, QFont::Normal);
}

QTimer *m_hTimer = nullptr;
