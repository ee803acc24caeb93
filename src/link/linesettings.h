// Serial line settings as values: a port request and the termios record it asks for. No I/O.
#pragma once

#include <QtGlobal>
#include <termios.h>

enum class PortMode : quint8 { RS232, RS485, RS422 };
enum Parity { ParityNone, ParityOdd, ParityEven, ParitySpace, ParityMark };

struct PortRequest {
    quint8 port; // COM 1, 2 or 3
    PortMode mode;
    int baud;
    int dataBits; // 5 to 8
    int parity; // Parity
    int stopBits; // 1 or 2
    int flow; // 1: RTS/CTS
    qint32 *readFd; // where the descriptors go; RS-422 has two different ones
    qint32 *writeFd;
};

// Whether the request's port and rate can be set at all. The other fields have their own rule,
// see setFrame().
bool isValid(const PortRequest &request);

// Raw bytes in both directions, receiver on, modem lines ignored, speed bits cleared.
void setRaw(termios &line);

// The standard speed code of `baud`, or B0 when the rate takes the custom divisor.
speed_t standardSpeed(int baud);

// Parity, data bits, stop bits and flow control. False at the first unknown value; what came
// before it is already in `line`.
bool setFrame(termios &line, const PortRequest &request);

// A read waits for one byte, and half a second between bytes (on a blocking descriptor).
void setReadTimes(termios &line);

// The record of the USB serial links: all zero but the read times, so without speed and CREAD.
termios usbLine();
