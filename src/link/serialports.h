// Opening the panel's ports into the descriptor globals of the test state, and the byte-level
// routines that all traffic goes through.
#pragma once

#include "linesettings.h"

// Argument of the COM openers.
constexpr int ComRS232 = 0; // COM1 only
constexpr int ComRS485 = 1;
constexpr int ComRS422 = 2; // COM2, COM3

// Each closes the descriptors of its mode first, then opens the port into them. 1 when the request
// was handled, 0 when port or mode are unknown or the device could not be opened (printed on
// standard output; its descriptors are -1 then). The panel has no third UART: openCom3() is always
// 0.
int openCom1(int mode);
int openCom2(int mode);
int openCom3(int mode);

// Opens the device that `request` names. 1 also when a line setting is unknown: callers take 1 as
// success, and no descriptor is stored then.
int openPort(const PortRequest &request);

// The host-side serial adapter and the gadget's serial port, blocking. The descriptor is -1 when
// the device is not there.
void openUsbHost(); // /dev/ttyUSB0 -> ttyUSB0_fd
void openUsbGadget(); // /dev/ttyGS0 -> ttyGS0_fd
void closeUsbHost();
void closeUsbGadget();

// Closes both, if open, and zeroes them.
void closePair(qint32 &readFd, qint32 &writeFd);

// Closes `readFd` and zeroes both. The write descriptor is forgotten, not closed: where the two
// differ, the next opener starts from zero and the old descriptor stays with the process.
void dropPort(qint32 &readFd, qint32 &writeFd);

// Reads exactly `count` bytes, one at a time; an empty read sleeps 20 ms and is tried once more.
// `count` when all came, else 0; the bytes that did come stay in the buffer.
int readExactly(int fd, char *buffer, int count);

// Reads up to 30 waiting bytes away. Costs about 20 ms on a silent line.
void drainPort(int fd);

// What write() returns; -1 for the 0 or -1 of a port that is not open, which is never written to.
int writePort(int fd, const char *bytes, int count);
