// The LCM circuit test: scripts drive patterns onto the display's lines, a probe on COM2 confirms
// each.
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "probe.h"
#include "state/itemrecord.h"
#include "system/command.h"

#include <cstdio>

constexpr int LcmItem = 7;
constexpr int PatternPauseMs = 450; // the probe's time to look

// The I2C modes drive the same patterns as the plain ones; only the words to the probe differ.
struct LcmMode {
    int patterns;
    const char *message, *answer; // with the pattern's number, two digits
    const char *patternScript;
    const char *passReply;
    int firstFailure; // reply code of pattern 1 in hexadecimal; each further pattern's is one less
};

constexpr char FullScript[] = "/usr/local/ict/lcd_circuit_test_pattern.sh";
constexpr char FastScript[] = "/usr/local/ict/fast_lcd_circuit_test_pattern.sh";

static const LcmMode modes[] = {
    {20, "LCM P%02d Test !!\r\n", "LCM P%02d Test PASS!\r\n", FullScript, "9502", 0x95FF},
    {20, "LCM I2C P%02d Test\r\n", "LCM I2C P%02d PASS\r\n", FullScript, "9508", 0x95FF},
    {2, "FastLCM_P%02d\r\n", "FastLCM_P%02d PASS\r\n", FastScript, "9503", 0x95E7},
    {2, "FastLCM_I2C_P%02d\r\n", "FastLCM_I2C_P%02d PASS\r\n", FastScript, "9509", 0x95E7},
};

static bool patternIsSeen(const LcmMode &mode, int pattern)
{
    char message[MaxSentence], answer[MaxSentence];
    snprintf(message, sizeof message, mode.message, pattern);
    snprintf(answer, sizeof answer, mode.answer, pattern);
    runProcess(QString::asprintf("%s %d", mode.patternScript, pattern));
    return isAnswered(Com2OpenRS4xx_W_fd2, Com2OpenRS4xx_R_fd2, message, PatternPauseMs, answer);
}

// The first pattern that the probe does not confirm, 0 if there is none.
static int failingPattern(const LcmMode &mode)
{
    for (int pattern = 1; pattern <= mode.patterns; ++pattern) {
        if (!patternIsSeen(mode, pattern))
            return pattern;
    }
    return 0;
}

void MainWindow::testLcmCircuit(int mode)
{
    if (mode < 0 || mode >= int(std::size(modes)))
        return;
    const LcmMode &row = modes[mode];
    beginTest(LcmItem);
    openCom2(ComRS485);
    drainPort(Com2OpenRS4xx_R_fd2);
    runProcess(QStringLiteral("/usr/local/ict/lcd_circuit_test_init.sh"));
    if (const int failing = failingPattern(row)) {
        printf("In LCM test, pattern %02d failed\n", failing);
        sendReply(QByteArray::number(row.firstFailure - (failing - 1), 16).toUpper());
    } else {
        sendReply(row.passReply);
        setItem(LcmItem, ItemPassed);
    }
    dropPort(Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2);
    recordItem(LcmItem);
    runProcess(QStringLiteral("/usr/local/ict/lcd_circuit_test_uninit.sh"));
}
