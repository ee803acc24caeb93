#include "factorylog.h"

#include "state/linkstate.h"
#include "state/runstate.h"
#include "system/command.h"
#include "system/files.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int DateLimitMs = 30000;
constexpr char SizeWarning[] = "File size going to exceed max size\n"; // written with its NUL

static qint64 sizeOf(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 ? qint64(status.st_size) : 0;
}

static qint64 logSize()
{
    struct stat status;
    return stat(FactoryLogPath, &status) == 0 ? qint64(status.st_size) : 0;
}

// All of it or nothing: a piece, which is what a full medium may take, would shift every record
// that comes after it.
static bool appendWhole(File &log, const char *bytes, qint64 length)
{
    const qint64 before = sizeOf(log.fd());
    if (log.write(bytes, length))
        return true;
    (void)!ftruncate(log.fd(), before);
    return false;
}

int factoryLog(const char *note)
{
    if ((!note && g_uiHMI_TEST_LEVEL == LevelBI) || logSize() > LogSizeCap)
        return -1;
    File log(FactoryLogPath, O_RDWR | O_APPEND | O_CREAT);
    if (!log.isOpen())
        return -1;
    // The date keeps its own line end, so a record starts with a line of date and time.
    const QByteArray date = runProcess(QStringLiteral("date +\"%Y-%m-%d %H:%M:%S\""), DateLimitMs);
    char record[LogRecordSize] = {};
    if (note)
        snprintf(record, sizeof record, "%s%s\n", date.constData(), note);
    else
        snprintf(record, sizeof record, "%s%s%s%s%s\n", date.constData(), "---> ",
                 UART_Buffer_ShowInInfo, "<--- ", UART_Buffer_ShowOutInfo);
    const bool written = appendWhole(log, record, sizeof record);
    if (written && sizeOf(log.fd()) > LogWarningSize)
        appendWhole(log, SizeWarning, sizeof SizeWarning);
    sync();
    return written ? 0 : -1;
}
