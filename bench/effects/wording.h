#pragma once

#include "effects/trace.h"

// How the journal words single calls.
QString openMode(const QByteArray &flags, bool port); // of open, openat, F_SETFL
QString shortName(const QByteArray &path); // without /usr/local/ict
QString changedName(const Operation &operation); // renamed, removed, ...
QString controlText(const Operation &port); // of a port's ioctl; empty for mere questions
QString eventText(const QByteArray &bytes); // 16-byte input events
QString commandText(const QList<QByteArray> &words);

// With each record of the factory log, which every request repeats, told in one line; only where
// every step of it was taken, in order.
QStringList folded(const QStringList &lines);
