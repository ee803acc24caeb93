// What the painters show, and where.
#pragma once

#include "linkstate.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QPoint>
#include <QRect>
#include <QString>

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
