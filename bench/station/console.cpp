#include "station/console.h"

#include "panel/files.h"

#include <QMutex>

#include <cstdio>
#include <unistd.h>

static QMutex mutex;
static QString status;

void say(const QString &line, bool bad)
{
    const QMutexLocker lock(&mutex);
    const bool red = bad && isatty(STDOUT_FILENO);
    printf("%s%s%s%s\n%s", status.isEmpty() ? "" : "\r\033[K", red ? "\033[31m" : "",
           qPrintable(line), red ? "\033[0m" : "", qPrintable(status));
    fflush(stdout);
}

void showStatus(const QString &line)
{
    const QMutexLocker lock(&mutex);
    if (!isatty(STDOUT_FILENO) || line == status)
        return;
    status = line;
    printf("\r\033[K%s", qPrintable(line));
    fflush(stdout);
}

void sayVerdict(bool passed)
{
    if (!isatty(STDOUT_FILENO))
        return say(passed ? "PASSED" : "FAILED");
    const QByteArray letters =
        readFile(dataFolder() + "/bench/report/" + (passed ? "pass" : "fail") + ".txt");
    say(QString("\n%1%2\033[0m").arg(passed ? "\033[1;32m" : "\033[1;31m", QString(letters)));
}
