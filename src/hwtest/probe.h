// Sentences exchanged with the probes and loops of the fixture. They are compared as text: a NUL
// among the bytes ends it.
#pragma once

#include <QByteArray>
#include <QtGlobal>

constexpr int MaxSentence = 30; // bytes of the longest answer read

// Sleeps for all of `ms`, whatever signals the end of a child process sends.
void waitMs(int ms);

void sendSentence(qint32 fd, const char *sentence);

// Reads `count` bytes, MaxSentence at most; what came of them, cut to `length`.
QByteArray readSentence(qint32 fd, int count, int length);

// Sends `sentence` on `writeFd`, waits, reads as many bytes from `readFd` as `expected` has and
// compares.
bool isAnswered(qint32 writeFd, qint32 readFd, const char *sentence, int pauseMs,
                const char *expected);
