#include "dispatcher.h"

#include "link/frame.h"
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"

#include <cstring>

constexpr int LastTextByte = LinkBufferSize - 1; // index of the NUL of a full buffer

static void clearRequest()
{
    memset(UART_Buffer, 0, sizeof UART_Buffer);
}

static bool startsWith(const char *prefix)
{
    return strncmp(UART_Buffer, prefix, strlen(prefix)) == 0;
}

// --- Long requests ------------------------------------------------------------------------------

// How reading a long request ended.
enum class Reading {
    Complete,
    Incomplete, // no answer; the tick ends as usual
    Abandoned // the tick ends at once, with the buffer as it is
};

static Reading readMore(int count)
{
    return readExactly(linkReadFd(), UART_Buffer + ShortFrameSize, count) ? Reading::Complete
                                                                          : Reading::Incomplete;
}

static Reading readClockRequest()
{
    return readMore(12);
}

// 28 bytes, then to the line feed. The loop waits for a sender however slow; a line that passes
// what the buffer holds is dropped.
static Reading readMachineId()
{
    const Reading start = readMore(17);
    if (start != Reading::Complete)
        return start;
    int last = ShortFrameSize + 17 - 1;
    while (UART_Buffer[last] != '\n') {
        char byte;
        if (!readExactly(linkReadFd(), &byte, 1))
            continue;
        if (last + 1 >= LastTextByte)
            return Reading::Abandoned;
        UART_Buffer[++last] = byte;
    }
    return Reading::Complete;
}

// 23 bytes, then to the line feed or the 31st byte, whichever comes first.
static Reading readSemiMachineId()
{
    constexpr int LastIndex = 29;
    const Reading start = readMore(12);
    if (start != Reading::Complete)
        return start;
    for (int i = ShortFrameSize + 12 - 1; i <= LastIndex && UART_Buffer[i] != '\n'; ++i) {
        if (!readExactly(linkReadFd(), UART_Buffer + i + 1, 1))
            return Reading::Abandoned;
    }
    return Reading::Complete;
}

static Reading readNothingMore()
{
    return Reading::Complete;
}

// Requests known by how they start. They carry data after the code, so the dispatcher has to know
// their length before it can check anything, and the handlers check them by their own rules.
struct LongRequest {
    const char *start;
    Reading (*readRest)();
    void (MainWindow::*run)();
};

// --- The tick ------------------------------------------------------------------------------------

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

// False when the tick must end at once, without clearing the buffer or repainting.
bool MainWindow::dispatchLongRequest(bool *handled)
{
    static const LongRequest requests[] = {
        {":008D", readClockRequest, &MainWindow::setClock},
        {":008E", readClockRequest, &MainWindow::compareClock},
        {":000601", readMachineId, &MainWindow::storeMachineId},
        {":000602", readSemiMachineId, &MainWindow::storeSemiMachineId},
        {":000603", readSemiMachineId, &MainWindow::verifySemiMachineId},
        {":9510", readNothingMore, &MainWindow::LCD_SHOW_SPECIFIC_COLOR},
    };
    for (const LongRequest &request : requests) {
        if (!startsWith(request.start))
            continue;
        *handled = true;
        const Reading reading = request.readRest();
        if (reading == Reading::Complete) {
            setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
            (this->*request.run)();
        }
        return reading != Reading::Abandoned;
    }
    return true;
}

void MainWindow::ICTTestLoop()
{
    clearRequest();
    if (!g_bTestAllow)
        return;
    const bool atBi = g_uiHMI_TEST_LEVEL == LevelBI;
    if (!readExactly(linkReadFd(), UART_Buffer, ShortFrameSize)) {
        if (atBi)
            clearRequest();
        return;
    }
    setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
    leavePattern();
    bool handled = false;
    if (startsWith("KLV-")) {
        handled = true;
        receiveForcedChange();
    } else if (!atBi && !dispatchLongRequest(&handled)) {
        return;
    }
    const quint8 station = atBi ? quint8(g_iSTATION_NUM) : 0;
    if (!handled && checkFrame(UART_Buffer, UART_ChkStr, station))
        dispatchCode(*this, g_uiHMI_TEST_LEVEL, UART_ChkStr);
    clearRequest();
    if (g_ShowReadWriteInfo)
        repaint();
}
