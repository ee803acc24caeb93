#include "linesettings.h"

#include <cstring>

bool isValid(const PortRequest &request)
{
    return request.port >= 1 && request.port <= 3 && request.baud > 0 && request.readFd
        && request.writeFd;
}

void setRaw(termios &line)
{
    line.c_iflag &= ~tcflag_t(IGNBRK | BRKINT | PARMRK | INPCK | ISTRIP | INLCR | ICRNL | IXON);
    line.c_oflag &= ~tcflag_t(0x7F);
    line.c_lflag &= ~tcflag_t(ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL | ECHOCTL | ECHOPRT
                              | ECHOKE | IEXTEN);
    line.c_cflag &= ~tcflag_t(CBAUD | CBAUDEX);
    line.c_cflag |= CREAD | CLOCAL;
}

speed_t standardSpeed(int baud)
{
    static const struct {
        int baud;
        speed_t code;
    } speeds[] = {{4800, B4800},   {9600, B9600},   {19200, B19200},
                  {38400, B38400}, {57600, B57600}, {115200, B115200}};
    for (const auto &speed : speeds) {
        if (speed.baud == baud)
            return speed.code;
    }
    return B0;
}

static bool setParity(termios &line, int parity)
{
    switch (parity) {
    case ParityNone:
        line.c_cflag &= ~tcflag_t(PARENB);
        return true;
    case ParityOdd:
        line.c_cflag |= PARENB | PARODD;
        line.c_iflag |= INPCK | ISTRIP;
        return true;
    case ParityEven:
        line.c_cflag |= PARENB;
        line.c_cflag &= ~tcflag_t(PARODD);
        line.c_iflag |= INPCK | ISTRIP;
        return true;
    case ParitySpace:
        line.c_cflag |= PARENB | CMSPAR;
        line.c_cflag &= ~tcflag_t(PARODD);
        return true;
    case ParityMark:
        line.c_cflag |= PARENB | PARODD | CMSPAR;
        return true;
    }
    return false;
}

static bool setDataBits(termios &line, int dataBits)
{
    static const tcflag_t codes[] = {CS5, CS6, CS7, CS8};
    if (dataBits < 5 || dataBits > 8)
        return false;
    line.c_cflag = (line.c_cflag & ~tcflag_t(CSIZE)) | codes[dataBits - 5];
    return true;
}

static bool setStopBits(termios &line, int stopBits)
{
    line.c_cflag &= ~tcflag_t(CSTOPB);
    if (stopBits == 2)
        line.c_cflag |= CSTOPB;
    return stopBits == 1 || stopBits == 2;
}

static bool setFlow(termios &line, int flow)
{
    line.c_cflag &= ~tcflag_t(CRTSCTS);
    if (flow == 1)
        line.c_cflag |= CRTSCTS;
    return flow == 0 || flow == 1;
}

bool setFrame(termios &line, const PortRequest &request)
{
    return setParity(line, request.parity) && setDataBits(line, request.dataBits)
        && setStopBits(line, request.stopBits) && setFlow(line, request.flow);
}

void setReadTimes(termios &line)
{
    line.c_cc[VMIN] = 1;
    line.c_cc[VTIME] = 5;
}

termios usbLine()
{
    termios line;
    memset(&line, 0, sizeof line);
    setReadTimes(line);
    return line;
}
