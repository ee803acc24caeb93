// Who the panel is, and its PC link.
#pragma once

#include <QtGlobal>

class QProcess;

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
