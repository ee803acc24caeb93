// Presence on the PC link, memory and storage.
#include "link/reply.h"
#include "mainwindow.h"
#include "outcome.h"
#include "selfcheck.h"
#include "state/itemrecord.h"
#include "system/command.h"
#include "system/files.h"

#include <QProcess>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

constexpr ItemIndex PresenceItem = {3, 3, -1, 3};
constexpr ItemIndex DdrItem = {6, 6, 1, 6};
constexpr ItemIndex UsbItem = {12, 13, 4, 12};
constexpr int RootfsItem = 14; // at ICT

// The request itself has proved COM1 RS-232.
void MainWindow::confirmPresence()
{
    const int item = PresenceItem.atLevel();
    if (item < 0)
        return;
    sendReply("8000");
    setAndRecordItem(item, ItemPassed);
}

void MainWindow::testDdr()
{
    const int item = DdrItem.atLevel();
    beginTest(item);
    replyOutcome(item, ddrPasses(), "8500", "85F0");
}

// --- Backup root file system --------------------------------------------------------------------

constexpr int RootfsUnknown = -1, RootfsOther = 3; // besides the script's own 0, 1 and 2

// The verdict of the check that the boot started; waits for its end.
static int collectRootfsCheck()
{
    if (!Process_Chk_BB)
        return RootfsOther;
    const char verdict = awaitOutput(*Process_Chk_BB).append('\0')[0];
    Process_Chk_BB->deleteLater();
    Process_Chk_BB = nullptr;
    return verdict >= '0' && verdict <= '2' ? verdict - '0' : RootfsOther;
}

void MainWindow::reportRootfsCheck()
{
    static const char *const replies[] = {"8700", "87F1", "87F2", "87F0"};
    beginTest(RootfsItem);
    if (Chk_BB_result == RootfsUnknown)
        Chk_BB_result = collectRootfsCheck();
    replyOutcome(RootfsItem, Chk_BB_result == 0, replies[0],
                 replies[qBound(0, Chk_BB_result, RootfsOther)]);
}

// --- USB storage --------------------------------------------------------------------------------

constexpr char UsbPattern[] = "HMI-TestChar\r\n";
constexpr int UsbPatternSize = int(sizeof UsbPattern - 1);

// Neither file is created: that one is there shows that the medium is. The bytes of an earlier test
// still lie at the other end, so the write itself must succeed, down to the medium.
static bool writeUsbPattern()
{
    File file("/media/sda/HMI_ICT_Test.txt", O_RDWR);
    if (!file.isOpen())
        return false;
    const bool written = file.write(UsbPattern, UsbPatternSize) && fsync(file.fd()) == 0;
    sync();
    return written;
}

// The ram disk is the medium's other end, through the fixture. Other bytes leave its file open, on
// purpose, until the next test.
static bool readUsbPatternBack()
{
    static std::optional<File> file;
    file.emplace("/mnt/ramdisk/HMI_ICT_Test.txt", O_RDWR);
    char bytes[UsbPatternSize] = {};
    if (!file->isOpen() || file->read(bytes, UsbPatternSize) != UsbPatternSize
        || memcmp(bytes, UsbPattern, UsbPatternSize) != 0)
        return false;
    file.reset();
    return true;
}

void MainWindow::testUsbStorage()
{
    const int item = UsbItem.atLevel();
    beginTest(item);
    if (writeUsbPattern() && readUsbPatternBack()) {
        sendReply("A200");
        setAndRecordItem(item, ItemPassed);
    } else {
        sendReply("A2F0");
    }
}
