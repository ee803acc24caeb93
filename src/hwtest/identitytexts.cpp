// The texts a unit is known by: version, CRC of its flash, model, and the fixture's tool version.
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "probe.h"
#include "state/itemrecord.h"
#include "system/command.h"
#include "system/print.h"

#include <cstring>

constexpr int ModelItem = 0, CrcItem = 1, VersionItem = 2;
constexpr int ModelPrefixLength = 6; // "Model="
constexpr int VersionPrefixLength = 8; // "Version="
constexpr int ToolVersionPauseMs = 100;

// The same items at ICT, T1 and T2; BI has none of them.
static int itemOutsideBi(int index)
{
    return ItemIndex{index, index, -1, index}.atLevel();
}

// Puts the application's version into the template's places. A place that the version does not
// reach keeps the template's letter; with no version known all do.
static QByteArray versionText()
{
    static const int places[] = {0, 2, 3, 4, 5}; // the A and the four B of "A.BBBB.120\n"
    QByteArray version = QByteArray(HMIAppVersion).mid(VersionPrefixLength);
    while (version.endsWith('\n') || version.endsWith('\r'))
        version.chop(1); // its end only: a blank before it has a place
    for (int place : places) {
        if (place < version.size())
            HMIFWVersion[place] = version[place];
    }
    return QByteArray(HMIFWVersion, VersionTextLength);
}

// Asked of the fixture over COM1 RS-485; a silent one leaves 0.00.
static void sendToolVersion()
{
    char version[] = "ToolVer=0.00\r\n";
    // The COM2 descriptors stand for the same line meanwhile, so what they held is closed first:
    // the two of an RS-422 test too.
    closePair(Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2);
    openCom1(ComRS485);
    Com2OpenRS4xx_R_fd2 = Com1OpenRS4xx_R_fd2;
    Com2OpenRS4xx_W_fd2 = Com1OpenRS4xx_W_fd2;
    sendSentence(Com1OpenRS4xx_W_fd2, "GET_TOOL_VER\r\n");
    waitMs(ToolVersionPauseMs);
    readExactly(Com1OpenRS4xx_R_fd2, version, int(sizeof version - 1));
    sendRaw(version);
    // One number, closed twice on purpose: COM1's and COM2's are both given up.
    dropPort(Com1OpenRS4xx_R_fd2, Com1OpenRS4xx_W_fd2);
    dropPort(Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2);
}

void MainWindow::sendIdentityText(int which)
{
    switch (which) {
    case IdentityVersion:
        sendRaw(versionText());
        setAndRecordItem(itemOutsideBi(VersionItem), ItemPassed);
        break;
    case IdentityCrc:
        sendRaw(firstLineOf(QStringLiteral("/usr/local/ict/ReadCrc.bin /dev/mtd0"), 60));
        setAndRecordItem(itemOutsideBi(CrcItem), ItemPassed);
        break;
    case IdentityModel:
        sendRaw(HMIAppModel[0] ? QByteArray(HMIAppModel + ModelPrefixLength) : QByteArray());
        setAndRecordItem(itemOutsideBi(ModelItem), ItemPassed);
        break;
    case IdentityToolVersion:
        if (g_uiHMI_TEST_LEVEL != LevelBI) // whose link runs over that port
            sendToolVersion();
        break;
    default:
        printNow("HMI_INFO Exception");
        break;
    }
}
