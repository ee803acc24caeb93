#include "levelflow.h"

#include "link/factorylog.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "resumelog.h"
#include "state/itemrecord.h"
#include "state/levels.h"
#include "system/command.h"
#include "system/files.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

constexpr int T1EndItem = T1ItemCount - 1;

void removeFlagFile(const char *path)
{
    runShell(QByteArray("rm ").append(path).constData());
}

static bool allPassedButLast()
{
    for (int i = 0; i < TEST_ITEM - 1; ++i) {
        if (Item_Status[i] != ItemPassed)
            return false;
    }
    return true;
}

static void replyEndCheckFailed()
{
    if (const Level *level = findLevel(g_uiHMI_TEST_LEVEL))
        sendReply(QByteArray(level->wireCode) + "F0");
}

// Writes the next level into the level file. False if the file cannot be opened. At a level outside
// the table the file is left empty: it is truncated before the level is looked at, and the next
// boot takes an empty file for ICT.
static bool promote(bool extended)
{
    File file(LevelFilePath, O_RDWR | O_CREAT | O_TRUNC);
    if (!file.isOpen())
        return false;
    if (const Level *level = findLevel(g_uiHMI_TEST_LEVEL)) {
        const char *next = extended ? HmiLevelText : level->next;
        if (strcmp(next, HmiLevelText) != 0)
            removeFlagFile(levels[levelOfFileText(next)].flagFile);
        file.write(next, qint64(strlen(next)));
        sendReply(QByteArray(level->wireCode) + (extended ? "01" : "00"));
        gb_ShowT1ExternItem |= extended;
    }
    sync();
    return true;
}

// The panel is done: its logs go to persistent storage and the user's SRAM starts at zero.
static void releasePanel()
{
    runShell("/usr/local/ict/log_rdwr.sh -w");
    File sram(SramDevice, O_RDWR);
    if (sram.isOpen()) {
        const QByteArray zeroes(SramSize, '\0');
        lseek(sram.fd(), 0, SEEK_SET);
        sram.write(zeroes.constData(), zeroes.size());
    }
    appendToResumeLog(sram.isOpen()
                          ? "echo HMI_ICT_CHECK_OK And Clear All SRAM Data Pass!!! " TO_RESUME_LOG
                          : "echo HMI_ICT_CHECK_OK But Clear All SRAM Data Fail!!! " TO_RESUME_LOG);
}

static void closeEndCheck(int endItem)
{
    recordItem(endItem);
    appendDateToResumeLog();
    if (const Level *level = findLevel(g_uiHMI_TEST_LEVEL))
        appendFlagFileToResumeLog(*level);
    else
        appendToResumeLog("echo TEST_LEVEL Fail! Not ICT/T1/BI/T2" TO_RESUME_LOG);
    appendToResumeLog("echo ===================== Test End =====================" TO_RESUME_LOG);
    sync();
    factoryLog(nullptr);
}

void MainWindow::levelEndCheck(int item)
{
    const bool extended = item == ExtendedT1Check;
    const int endItem = extended ? T1EndItem : item;
    // For good: after an end check, passed or not, the station has to power-cycle the panel.
    g_bTestAllow = false;
    setAndRecordItem(endItem, ItemRunning);
    const bool allPassed = allPassedButLast();
    if (allPassed && extended && T1_Extern_Item_Flag != T1ExternAll) {
        sendReply("01FF");
        gb_ShowT1ExternItem = true;
        return;
    }
    if (allPassed && promote(extended)) {
        setItem(endItem, ItemPassed);
        if (g_uiHMI_TEST_LEVEL == LevelT2 || extended)
            releasePanel();
    } else {
        replyEndCheckFailed();
    }
    closeEndCheck(endItem);
}

// Writes the level file's line, says so in the resume log and to the station.
static void forceLevel(File &levelFile, const char *levelName, const char *fileText)
{
    levelFile.write(fileText, qint64(strlen(fileText)));
    appendToResumeLog(QByteArray("echo QZ! ===== Forcibly Goto ")
                          .append(levelName)
                          .append(" Pass!! ===== " TO_RESUME_LOG)
                          .constData());
    sendRaw(QByteArray("FORCIBLY_GOTO_") + levelName + "_PASS");
}

void MainWindow::refuseForcedChange()
{
    appendToResumeLog("echo =.=Forcibly Goto Fail=.= " TO_RESUME_LOG);
    sendRaw("FORCIBLY_GOTO_FAIL");
}

void MainWindow::forcedLevelChange(int position)
{
    setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
    File file(LevelFilePath, O_RDWR | O_CREAT | O_TRUNC);
    if (!file.isOpen()) {
        refuseForcedChange();
        return;
    }
    // Unknown digits leave the file empty, which the next boot reads as ICT, and are not answered.
    const char *digits = UART_Buffer + position;
    for (const Level &level : levels) {
        if (strncmp(digits, level.wireCode, 2) != 0)
            continue;
        removeFlagFile(level.flagFile);
        forceLevel(file, level.name, level.fileText);
    }
    if (strncmp(digits, HmiWireCode, 2) == 0)
        forceLevel(file, "HMI", HmiLevelText);
    sync();
}

void MainWindow::GotoT1Button()
{
    if (!g_bGotoT1ModeAllow) {
        showButtons({SlaveGotoT1Button, SlaveStartButton}, false);
        File file(LevelFilePath, O_RDWR | O_CREAT | O_TRUNC);
        if (file.isOpen()) {
            const Level &t1 = levels[LevelT1];
            g_bGotoT1ModeAllow = true;
            removeFlagFile(t1.flagFile);
            removeFlagFile(levels[LevelT2].flagFile);
            file.write(t1.fileText, qint64(strlen(t1.fileText)));
            sync();
            appendToResumeLog("echo QZ! ===== HMI-Warden Goto T1 Pass!! ===== " TO_RESUME_LOG);
            sync();
        }
    }
    repaint();
}
