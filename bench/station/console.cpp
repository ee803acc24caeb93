#include "station/console.h"

#include <QMutex>

#include <cstdio>
#include <unistd.h>

static QMutex mutex;
static QString status;

static void put(const QString &line, bool bad)
{
    const bool terminal = isatty(STDOUT_FILENO);
    printf(status.isEmpty() ? "" : "\r\033[K");
    printf(bad && terminal ? "\033[31m%s\033[0m\n" : "%s\n", qPrintable(line));
    printf("%s", qPrintable(status));
    fflush(stdout);
}

void say(const QString &line, bool bad)
{
    const QMutexLocker lock(&mutex);
    put(line, bad);
}

void showStatus(const QString &line)
{
    const QMutexLocker lock(&mutex);
    if (!isatty(STDOUT_FILENO) || line == status) {
        return;
    }
    status = line;
    printf("\r\033[K%s", qPrintable(line));
    fflush(stdout);
}

void sayVerdict(bool passed)
{
    static const char *const pass[] = {"####    ###    ####   ####", "#   #  #   #  #      #",
                                       "####   #####   ###    ###", "#      #   #      #      #",
                                       "#      #   #  ####   ####"};
    static const char *const fail[] = {"#####   ###   #####  #", "#      #   #    #    #",
                                       "####   #####    #    #", "#      #   #    #    #",
                                       "#      #   #  #####  #####"};
    if (!isatty(STDOUT_FILENO)) {
        say(passed ? "PASSED" : "FAILED");
        return;
    }
    const QMutexLocker lock(&mutex);
    printf("\n%s", passed ? "\033[1;32m" : "\033[1;31m");
    for (const char *row : passed ? pass : fail) {
        printf("    %s\n", row);
    }
    printf("\033[0m\n");
    fflush(stdout);
}
