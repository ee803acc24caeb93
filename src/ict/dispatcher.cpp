// The tick: at most one request is read and run, then the window is painted.
#include "commandtables.h"
#include "link/frame.h"
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "state/runstate.h"

#include <cstring>

static void clearRequest()
{
    memset(UART_Buffer, 0, sizeof UART_Buffer);
}

// The first request after a test pattern brings the information screen back. At BI the backlight
// and the touch points are left alone on purpose: no command of that level touches them.
void MainWindow::leavePattern()
{
    if (g_ShowReadWriteInfo)
        return;
    setBackground(m_aclrBG[BgWhite]);
    if (g_uiHMI_TEST_LEVEL != LevelBI) {
        HMI_ICT_TEST_LCM_BL(-1);
        g_showAllTPCalPoints = 0;
    }
    g_ShowReadWriteInfo = 1;
    g_ShowRGB_Pattern_Flag = 0;
}

static RequestEnd runLongRequest(MainWindow &window, const LongRequest &request)
{
    const RequestEnd end = request.readRest();
    if (end == RequestEnd::Complete && request.run) {
        setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
        (window.*request.run)();
    }
    return end;
}

static void runFrame(MainWindow &window)
{
    const quint32 level = g_uiHMI_TEST_LEVEL;
    const quint8 station = level == LevelBI ? quint8(g_iSTATION_NUM) : 0;
    if (checkFrame(UART_Buffer, UART_ChkStr, station))
        dispatchCode(window, level, UART_ChkStr);
}

void MainWindow::ICTTestLoop()
{
    clearRequest();
    if (!g_bTestAllow || !readExactly(linkReadFd(), UART_Buffer, ShortFrameSize))
        return;
    setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
    leavePattern();
    if (const LongRequest *request = findLongRequest(g_uiHMI_TEST_LEVEL, UART_Buffer)) {
        if (runLongRequest(*this, *request) == RequestEnd::Abandoned)
            return;
    } else {
        runFrame(*this);
    }
    clearRequest();
    if (g_ShowReadWriteInfo)
        repaint();
}
