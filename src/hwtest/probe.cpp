#include "probe.h"

#include "link/serialports.h"

#include <QThread>
#include <cstring>

void waitMs(int ms)
{
    QThread::msleep(ulong(ms));
}

void sendSentence(qint32 fd, const char *sentence)
{
    writePort(fd, sentence, int(strlen(sentence)));
}

QByteArray readSentence(qint32 fd, int count, int length)
{
    char text[MaxSentence + 1] = {};
    readExactly(fd, text, qMin(count, MaxSentence));
    text[qMin(length, MaxSentence)] = '\0';
    return QByteArray(text);
}

bool isAnswered(qint32 writeFd, qint32 readFd, const char *sentence, int pauseMs,
                const char *expected)
{
    const int length = int(strlen(expected));
    sendSentence(writeFd, sentence);
    waitMs(pauseMs);
    return readSentence(readFd, length, length) == expected;
}
