// The real-time clock: in step with the system clock at ICT, set by the station at T1, still right
// at T2. It is kept in UTC.
#include "clock.h"

#include "clockcompare.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "outcome.h"
#include "selfcheck.h"
#include "state/itemrecord.h"
#include "system/command.h"

constexpr int RtcItem = 11; // at ICT and at T2
constexpr int SetClockItem = 12; // at T1
constexpr int RtcLineLength = 60;

void writeRtc()
{
    runProcess(QStringLiteral("hwclock -w -u"));
}

void presetClock()
{
    runProcess(QStringLiteral("date 010100002015"));
    writeRtc();
}

void MainWindow::testRtc()
{
    beginTest(RtcItem);
    replyOutcome(RtcItem, rtcAgreesWithSystem(), "8C00", "8CF0");
}

// Compares the RTC with the time in the request, and keeps its line for the screen.
static bool rtcAgreesWithRequest()
{
    const QByteArray line = firstLineOf(QStringLiteral("hwclock -r -u"), RtcLineLength);
    qs_RTC_HMI_TIME = QStringLiteral("HMI : ") + QString::fromLatin1(line.trimmed());
    ClockFields rtc;
    return fieldsOfRtcLine(line, &rtc) && clocksAgree(rtc, fieldsOfRequest(UART_Buffer));
}

// Whatever the request's columns hold is one argument of `date`. What that rejects shows as a
// comparison that fails.
static void setClockFromRequest()
{
    runProcess(QStringLiteral("cp /usr/share/zoneinfo/Asia/Taipei /etc/localtime"));
    runProcess(QStringLiteral("sync"));
    runProgram(QStringLiteral("date"), {QString::fromLatin1(dateArgument(UART_Buffer))});
    writeRtc();
}

void MainWindow::setClock()
{
    if (g_uiHMI_TEST_LEVEL == LevelT1) {
        beginTest(SetClockItem);
        setClockFromRequest();
        replyOutcome(SetClockItem, rtcAgreesWithRequest(), "8D00", "8DF0");
        T1_Extern_Item_Flag &= quint8(~T1ExternRebooted);
    }
    gb_ShowRTCInfo = true;
}

void MainWindow::compareClock()
{
    if (g_uiHMI_TEST_LEVEL == LevelT2) {
        beginTest(RtcItem);
        replyOutcome(RtcItem, rtcAgreesWithRequest(), "8E00", "8EF0");
    } else if (g_uiHMI_TEST_LEVEL == LevelT1) {
        // Asked for only by the extended T1 check, whose clock must have run through a power-off.
        if (!(T1_Extern_Item_Flag & T1ExternRebooted)) {
            sendReply("86FF");
            return;
        }
        if (rtcAgreesWithRequest()) {
            sendReply("8E00");
            T1_Extern_Item_Flag |= T1ExternRtcChecked;
        } else {
            sendReply("8EF0");
        }
    }
    gb_ShowRTCInfo = true;
}
