#include "levelflow.h"

#include "link/factorylog.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "resumelog.h"
#include "state/itemrecord.h"
#include "state/levels.h"
#include "system/command.h"
#include "system/files.h"
#include "system/sram.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

constexpr int T1EndItem = T1ItemCount - 1;

// In this order: a cut of power leaves the old level, at worst without its results, or the new one
// without old results. Never an empty file, and never a level with the results of an earlier pass.
bool changeLevel(const char *text, std::initializer_list<const Level *> restarted)
{
    File file(LevelFilePath, O_RDWR | O_CREAT);
    if (!file.isOpen())
        return false;
    for (const Level *level : restarted)
        runShell(QByteArray("rm ").append(level->flagFile).constData());
    sync();
    return file.replaceBy(text);
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

// At a level outside the table there is no next one and nothing to say.
static bool promote(bool extended)
{
    const Level *level = findLevel(g_uiHMI_TEST_LEVEL);
    if (!level)
        return changeLevel(NoLevelText, {});
    const char *next = extended ? HmiLevelText : level->next;
    const bool isHmi = strcmp(next, HmiLevelText) == 0;
    if (!(isHmi ? changeLevel(next, {}) : changeLevel(next, {&levels[levelOfFileText(next)]})))
        return false;
    sendReply(QByteArray(level->wireCode) + (extended ? "01" : "00"));
    gb_ShowT1ExternItem |= extended;
    sync();
    return true;
}

// The panel is done: its logs go to persistent storage and the user's SRAM starts at zero.
static void releasePanel()
{
    runShell("/usr/local/ict/log_rdwr.sh -w");
    appendToResumeLog(clearSram()
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
    beginTest(endItem);
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

bool goBackToT1()
{
    const Level &t1 = levels[LevelT1];
    if (!changeLevel(t1.fileText, {&t1, &levels[LevelT2]}))
        return false;
    appendToResumeLog("echo QZ! ===== HMI-Warden Goto T1 Pass!! ===== " TO_RESUME_LOG);
    sync();
    return true;
}
