#include "pointercal.h"

#include "system/command.h"
#include "system/files.h"

#include <fcntl.h>
#include <unistd.h>

constexpr int StartLimit = 256; // bytes taken of the backup before a calibration
constexpr int RestoreLimit = 512; // and after a failed check

// The zero byte is part of the file on purpose: readers on the panels in the field take the text
// up to it.
static void writeWithZero(const QByteArray &text)
{
    const char *start = text.constData();
    writeFile(PointercalFile, QByteArray(start, int(qstrlen(start)) + 1));
}

void writePointercal(const QByteArray &coefficients)
{
    writeWithZero(coefficients);
}

void backUpPointercal()
{
    runShell("cat /etc/pointercal > /usr/local/ict/pointercal");
    runShell("sync");
}

// A backup without a byte, as a power cut leaves it, counts as missing: putting it back would cost
// the panel the calibration it still has.
static bool isBackedUp()
{
    return !readFile(PointercalBackup, 1).isEmpty();
}

void backUpPointercalOnce()
{
    if (!isBackedUp())
        backUpPointercal();
}

void startFromLastGood()
{
    if (isBackedUp())
        writeWithZero(readFile(PointercalBackup, StartLimit));
    else
        runShell("cp /etc/pointercal /usr/local/ict/");
    runShell("sync");
}

void restoreLastGood()
{
    writeWithZero(readFile(PointercalBackup, RestoreLimit));
    runShell("sync");
}

void storeInBootLoader(const QByteArray &line)
{
    runShell(("echo " + line + " | fw_setenv -s /dev/stdin").constData());
    runShell("sync");
    runShell("/usr/local/ict/update_pointercal.sh &");
}

void writeTouchValues(const char *path, const QByteArray &lines)
{
    File file(path, O_RDWR | O_CREAT);
    if (!file.isOpen())
        return;
    file.write(lines.constData(), lines.size());
    sync();
}
