// Memory, storage, power and the identity texts.
#include "link/reply.h"
#include "mainwindow.h"
#include "state/itemrecord.h"
#include "system/command.h"

#include <cstdio>
#include <cstring>

constexpr int ModelItem = 0, CrcItem = 1, VersionItem = 2, PresenceItem = 3;
constexpr int ModelPrefixLength = 6; // "Model="
constexpr int VersionPrefixLength = 8; // "Version="

// The same items at ICT, T1 and T2; BI has none of them.
static int itemOutsideBi(int index)
{
    return ItemIndex{index, index, -1, index}.atLevel();
}

// Puts the application's version into the template's places. With no version known the template
// goes out as it stands.
static QByteArray versionText()
{
    static const int places[] = {0, 2, 3, 4, 5}; // the A and the four B of "A.BBBB.120\n"
    const char *version = HMIAppVersion + VersionPrefixLength;
    if (HMIAppVersion[0]) {
        for (int place : places)
            HMIFWVersion[place] = version[place];
    }
    return QByteArray(HMIFWVersion, VersionTextLength);
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
    default:
        printf("HMI_INFO Exception");
        fflush(stdout);
        break;
    }
}

void MainWindow::confirmPresence()
{
    const int item = itemOutsideBi(PresenceItem);
    if (item < 0)
        return;
    sendReply("8000");
    setAndRecordItem(item, ItemPassed);
}
