// COM1 RS-485 against the fixture's responder, COM2 RS-422 looped back on itself, COM2 RS-485 into
// COM1 RS-485. The ports stay open in the mode they were last opened in; the PC link on COM1 RS-232
// is not touched.
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "outcome.h"
#include "probe.h"
#include "state/itemrecord.h"

constexpr int Com1Rs232Item = 3, Com1Rs485Item = 4, Com2Item = 5;

// COM2 in COM1's sentence is right: the responders on the fixtures know no other.
constexpr char Com1Sentence[] = "KLV-100 COM2RS485\r\n";
constexpr char Com1Answer[] = "KLV-100 COM2RS485OK";
constexpr char Com2Sentence[] = "KLV-100 COM2RS422\r\n";
constexpr char CrossSentence[] = "TEST COM2RS485\r\n";

constexpr int ShortPauseMs = 100; // of the full test and of the cross link
constexpr int LongPauseMs = 300; // of the tests of one port

// BI has no serial items.
static bool hasSerialItems()
{
    return ItemIndex{Com2Item, Com2Item, -1, Com2Item}.atLevel() >= 0;
}

static bool com2Loops(int pauseMs)
{
    return isAnswered(Com2OpenRS4xx_W_fd2, Com2OpenRS4xx_R_fd2, Com2Sentence, pauseMs,
                      Com2Sentence);
}

static bool com2ReachesCom1()
{
    openCom1(ComRS485);
    openCom2(ComRS485);
    drainPort(Com1OpenRS4xx_R_fd2);
    return isAnswered(Com2OpenRS4xx_W_fd2, Com1OpenRS4xx_R_fd2, CrossSentence, ShortPauseMs,
                      CrossSentence);
}

void MainWindow::testAllPorts()
{
    if (!hasSerialItems())
        return;
    setAndRecordItem(Com1Rs232Item, ItemPassed); // the request came over it

    beginTest(Com1Rs485Item);
    openCom1(ComRS485);
    // Neither drained nor read twice, unlike the test of COM1 alone: this one is for fixtures whose
    // transceiver does not hear itself.
    if (!isAnswered(Com1OpenRS4xx_W_fd2, Com1OpenRS4xx_R_fd2, Com1Sentence, ShortPauseMs,
                    Com1Answer)) {
        sendReply("81F2");
        recordItem(Com1Rs485Item);
        return;
    }
    setAndRecordItem(Com1Rs485Item, ItemPassed);

    beginTest(Com2Item);
    openCom2(ComRS422);
    if (!com2Loops(ShortPauseMs)) {
        sendReply("81F7");
        recordItem(Com2Item);
        return;
    }
    setAndRecordItem(Com2Item, ItemPassed);

    // The cross link shows in the reply only; the item has its result.
    sendReply(com2ReachesCom1() ? "810A" : "81F3");
}

void MainWindow::testCom1Rs485()
{
    beginTest(Com1Rs485Item);
    openCom1(ComRS485);
    drainPort(Com1OpenRS4xx_R_fd2);
    sendSentence(Com1OpenRS4xx_W_fd2, Com1Sentence);
    waitMs(LongPauseMs);
    // The panel hears its own transmission on the two-wire bus first.
    const int length = int(sizeof Com1Answer - 1);
    readSentence(Com1OpenRS4xx_R_fd2, length, length);
    const bool answered = readSentence(Com1OpenRS4xx_R_fd2, length, length) == Com1Answer;
    replyOutcome(Com1Rs485Item, answered, "8102", "81F2");
}

void MainWindow::testCom2()
{
    if (!hasSerialItems())
        return;
    beginTest(Com2Item);
    openCom2(ComRS422);
    drainPort(Com2OpenRS4xx_R_fd2);
    if (com2Loops(LongPauseMs))
        replyOutcome(Com2Item, com2ReachesCom1(), "8107", "81F3");
    else
        replyOutcome(Com2Item, false, "8107", "81F7");
}
