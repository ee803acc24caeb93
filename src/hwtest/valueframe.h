// The frame that reports a measured voltage. Values only, no I/O.
#pragma once

#include <QByteArray>

constexpr int ValueFrameSent = 10; // bytes of it that go out: the line feed does not, on purpose

// ':', the two characters of `station`, '0', volts, tenths and hundredths, LRC, CR LF.
QByteArray valueFrame(const QByteArray &station, double mV);
