// The buzzer, heard by the fixture's microphone probe on COM2. The tone is off before the probe's
// answer is judged.
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "probe.h"
#include "state/itemrecord.h"
#include "system/files.h"
#include "system/inputevent.h"

#include <fcntl.h>
#include <optional>

constexpr ItemIndex BuzzerItem = {8, 9, -1, 9};

constexpr int LongToneMs = 3000;
constexpr int ShortToneMs = 1000;
constexpr int SilenceMs = 600;

// The two cuts differ on purpose: after the long tone a probe that sends more than its 16
// characters fails, after the short one what follows them is ignored.
constexpr int LongToneCut = 17, SilenceCut = 17, ShortToneCut = 16;

constexpr char ToneHeard[] = "Buzzer Test PASS";
constexpr char SilenceHeard[] = "Bzr_Silent_PASS\r\n";

// The device. A test leaves it open, on purpose: a tone ends by its event, never by a close. The
// next test closes what the last one left.
static std::optional<File> buzzer;

static bool openBuzzer()
{
    buzzer.emplace(BuzzerDevice, O_RDWR);
    return buzzer->isOpen();
}

static void startProbe(const char *sentence)
{
    openCom2(ComRS485);
    drainPort(Com2OpenRS4xx_R_fd2);
    sendSentence(Com2OpenRS4xx_W_fd2, sentence);
}

static bool probeAnswers(const char *expected, int cut)
{
    return readSentence(Com2OpenRS4xx_R_fd2, MaxSentence, cut) == expected;
}

void MainWindow::testBuzzerSound()
{
    const int item = BuzzerItem.atLevel();
    if (item < 0)
        return;
    beginTest(item);
    if (!openBuzzer()) {
        sendReply("92F1");
        return;
    }
    buzzerOn(buzzer->fd());
    startProbe("Buzzer Test !!\r\n");
    waitMs(LongToneMs);
    buzzerOff(buzzer->fd());
    if (probeAnswers(ToneHeard, LongToneCut)) {
        sendReply("9201");
        setAndRecordItem(item, ItemPassed);
    } else {
        sendReply("92F1");
    }
}

void MainWindow::testBuzzerSilent()
{
    const int item = BuzzerItem.atLevel();
    if (item < 0)
        return;
    beginTest(item);
    startProbe("Buzzer Silent Test\r\n");
    waitMs(SilenceMs);
    if (!probeAnswers(SilenceHeard, SilenceCut)) {
        sendReply("92F3");
        return;
    }
    if (!openBuzzer()) {
        sendReply("92F2");
        return;
    }
    buzzerOn(buzzer->fd());
    sendSentence(Com2OpenRS4xx_W_fd2, "Buzzer 1s Test\r\n");
    waitMs(ShortToneMs);
    buzzerOff(buzzer->fd());
    if (probeAnswers(ToneHeard, ShortToneCut)) {
        sendReply("9202");
        setAndRecordItem(item, ItemPassed);
    } else {
        sendReply("92F2");
    }
    dropPort(Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2);
}
