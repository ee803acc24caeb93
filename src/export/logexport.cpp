// Copies the logs to a stick or a card, and switches the role of the USB port. A copy counts as
// done once its commands have run: only a missing medium or archive is answered as a failure.
#include "ict/resumelog.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "system/command.h"
#include "system/print.h"

#include <QDir>
#include <QFile>

constexpr char Archive[] = "/tmp/ict_log.tgz";

// Whole command lines, as none of them holds anything but constants.
struct Export {
    int route;
    bool fromPartition;
    const char *mountPoint, *medium;
    const char *copy;
    const char *passReply, *failReply;
    const char *resumeNote;
};

#define RESUME_NOTE(from, to) "echo ------ Export Log From " from " to " to " ------ " TO_RESUME_LOG

static const Export exports[] = {
    {ExportPartitionToUsb, true, "/media/sda1", "USB Disk",
     "tar xf /tmp/ict_log.tgz -C /media/sda1", "CC00", "CCF0", RESUME_NOTE("Partition", "USB")},
    {ExportPartitionToSd, true, "/media/mmcblk0p1", "SD Card",
     "tar xf /tmp/ict_log.tgz -C /media/mmcblk0p1", "CC01", "CCF1", RESUME_NOTE("Partition", "SD")},
    {ExportFolderToUsb, false, "/media/sda1", "USB Disk", "cp /usr/local/ict/*.txt /media/sda1",
     "CC10", "CCE0", RESUME_NOTE("Folder", "USB")},
    {ExportFolderToSd, false, "/media/mmcblk0p1", "SD Card",
     "cp /usr/local/ict/*.txt /media/mmcblk0p1", "CC11", "CCE1", RESUME_NOTE("Folder", "SD")},
};

static bool isMounted(const Export &row)
{
    return QDir(QString::fromLatin1(row.mountPoint)).exists();
}

// What the partition's archive is missing, null if nothing. The archive is fetched in any case.
static const char *missingForPartition(const Export &row)
{
    runShell("/usr/local/ict/log_rdwr.sh -r");
    runShell("sync");
    if (!isMounted(row))
        return row.medium;
    return QFile::exists(QString::fromLatin1(Archive)) ? nullptr : "Partition";
}

static bool canCopy(const Export &row)
{
    if (!row.fromPartition)
        return isMounted(row);
    const char *missing = missingForPartition(row);
    if (missing)
        printNow("%s not exitst! Export Log From Partition to %s Fail", missing,
                 row.route == ExportPartitionToUsb ? "USB" : "SD");
    return !missing;
}

void MainWindow::exportLog(int route)
{
    for (const Export &row : exports) {
        if (row.route != route)
            continue;
        if (!canCopy(row)) {
            sendReply(row.failReply);
            return;
        }
        runShell(row.copy);
        runShell("sync");
        sendReply(row.passReply);
        appendToResumeLog(row.resumeNote);
    }
}

void MainWindow::switchUsbMode(int argument)
{
    runShell(argument ? "usb_mode.sh 4" : "usb_mode.sh 1"); // neither is answered
}
