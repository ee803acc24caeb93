// The identities a unit is given: semi-finished machine ID at ICT, machine ID and station number at
// T1; all are kept in files and read back from them.
#include "factory.h"
#include "idframe.h"
#include "link/factorylog.h"
#include "link/frame.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "state/itemrecord.h"
#include "system/command.h"
#include "system/files.h"

#include <QFile>
#include <cstring>

static const char semiMachineIdPath[] = "/usr/local/ict/HMI_SEMIMACHINE_ID.txt";

constexpr int SemiMachineIdItem = 9; // at ICT
constexpr int MachineIdItem = 10; // at T1
constexpr int StationItem = 15; // at T1
constexpr ItemIndex ReadBackItem = {-1, 16, -1, 14};

static bool exists(const char *path)
{
    return QFile::exists(QString::fromLatin1(path));
}

// The text in a file, which ends at its first zero as it does at a boot.
static QByteArray contentOf(const char *path)
{
    return runProgram(QStringLiteral("cat"), {QString::fromLatin1(path)}).constData();
}

// The ID of the request; a NUL in it ends the frame before its line end.
static bool requestedId(StationMatch match, QByteArray *id)
{
    const bool forAll = strncmp(UART_Buffer + 1, "00", 2) == 0;
    return takeId(UART_Buffer, forAll ? QByteArray() : readFile(StationFilePath, 2), match, id);
}

void MainWindow::assignStation()
{
    if (g_uiHMI_TEST_LEVEL != LevelT1)
        return;
    if (!writeFile(StationFilePath, QByteArray(UART_Buffer + 1, 2))) {
        sendReply("8AF0");
        return;
    }
    // Answered from the new station, which counts only from the next boot at BI on: until then the
    // panel goes on as station 0, on purpose.
    g_iSTATION_NUM = byteOfHex(UART_Buffer + 1);
    sendReply("8A00");
    g_iSTATION_NUM = 0;
    setAndRecordItem(StationItem, ItemPassed);
}

// --- Storing ------------------------------------------------------------------------------------

// What a unit of this factory is spared, and for factory W its station number, which the machine ID
// ends in. False when that cannot be stored: then nothing is granted.
static bool applyFactory(const QByteArray &id)
{
    classifyFactory(id);
    if (g_FactoryInfo != FactoryW)
        return true;
    if (!writeFile(StationFilePath, stationOfIdFrame(UART_Buffer)))
        return false;
    grantItemsOfFactory();
    return true;
}

void MainWindow::storeMachineId()
{
    if (g_uiHMI_TEST_LEVEL != LevelT1)
        return;
    beginTest(MachineIdItem);
    QByteArray id;
    if (!requestedId(StationMatch::AsNumber, &id))
        return; // unanswered, like any frame with an error
    if (!isPlainId(id) || !writeFile(MachineIdPath, id) || !applyFactory(id)) {
        sendReply("06F1");
        return;
    }
    sendReply("0601");
    setAndRecordItem(MachineIdItem, ItemPassed);
}

void MainWindow::storeSemiMachineId()
{
    if (g_uiHMI_TEST_LEVEL != LevelICT)
        return;
    beginTest(SemiMachineIdItem);
    QByteArray id;
    if (!requestedId(StationMatch::AsText, &id) || !isPlainId(id)
        || !writeFile(semiMachineIdPath, id)) {
        sendReply("06F2");
        return;
    }
    setItem(SemiMachineIdItem, ItemPassed);
    sendReply("0602");
    recordItem(SemiMachineIdItem);
}

// --- Reading back -------------------------------------------------------------------------------

void MainWindow::verifySemiMachineId()
{
    if (g_uiHMI_TEST_LEVEL != LevelT2)
        return;
    QByteArray id;
    const bool same = requestedId(StationMatch::AsText, &id) && exists(semiMachineIdPath)
        && contentOf(semiMachineIdPath) == id;
    sendReply(same ? "0603" : "06F3");
}

// Sends the ID in `path` in a frame of its own; a missing file is answered `failure`.
static bool sendIdOf(const char *path, const char *code, const char *failure)
{
    if (!exists(path)) {
        sendReply(failure);
        return false;
    }
    sendRaw(idFrame(code, contentOf(path).replace('\r', "").replace('\n', "")));
    return true;
}

void MainWindow::readBackMachineId()
{
    const int item = ReadBackItem.atLevel();
    beginTest(item);
    const bool sent = sendIdOf(MachineIdPath, "0701", "07F1");
    if (sent)
        setItem(item, ItemPassed);
    recordItem(item);
    if (sent)
        factoryLog(nullptr);
}

void MainWindow::readBackSemiMachineId()
{
    if (sendIdOf(semiMachineIdPath, "0702", "07F2"))
        factoryLog(nullptr);
}
