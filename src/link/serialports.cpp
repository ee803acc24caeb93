#include "serialports.h"

#include "state/linkstate.h"
#include "system/print.h"

#include <QThread>
#include <asm/ioctls.h>
#include <cstdio>
#include <fcntl.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <unistd.h>

constexpr unsigned long EmptyReadPauseUs = 20000;
constexpr int DrainSize = 30;

constexpr char Uart1[] = "/dev/ttyO1"; // COM1 RS-232
constexpr char Uart3[] = "/dev/ttyO3"; // COM1 RS-485, COM2 RS-422 transmitter
constexpr char Uart4[] = "/dev/ttyO4"; // COM2 RS-485, COM2 RS-422 receiver

// Any rate without a code of its own: B38400 with the UART's divisor replaced.
static void setCustomSpeed(int fd, termios &line, int baud)
{
    cfsetispeed(&line, B38400);
    cfsetospeed(&line, B38400);
    tcflush(fd, TCIFLUSH);
    if (tcsetattr(fd, TCSANOW, &line) < 0)
        perror("tcsetattr");
    serial_struct info = {};
    if (ioctl(fd, TIOCGSERIAL, &info) < 0)
        perror("ioctl TIOCGSERIAL");
    info.flags = (info.flags & ~ASYNC_SPD_MASK) | ASYNC_SPD_CUST;
    info.custom_divisor = info.baud_base / baud;
    if (ioctl(fd, TIOCSSERIAL, &info) < 0)
        perror("ioctl TIOCSSERIAL");
    tcflush(fd, TCIFLUSH);
}

static void setSpeed(int fd, termios &line, int baud)
{
    const speed_t speed = standardSpeed(baud);
    if (speed == B0) {
        setCustomSpeed(fd, line, baud);
    } else {
        cfsetispeed(&line, speed);
        cfsetospeed(&line, speed);
    }
}

static void enableRs485(int fd)
{
    serial_rs485 rs485 = {};
    rs485.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    if (ioctl(fd, TIOCSRS485, &rs485) < 0)
        printNow("Error setting rs485 mode");
}

static int openDevice(const char *path, const PortRequest &request, bool rs485, qint32 *slot)
{
    *slot = -1;
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 1) {
        printf("open UART fail, UART=%s, Com_fd = %d\n", path, fd);
        return 0;
    }
    termios line;
    if (tcgetattr(fd, &line) < 0 || !isValid(request)) {
        close(fd);
        return 0;
    }
    setRaw(line);
    setSpeed(fd, line, request.baud);
    if (!setFrame(line, request)) {
        // Handled, as far as callers are concerned, although the port stays unset and no descriptor
        // is stored: they take 1 as success and find the slot at -1.
        close(fd);
        return 1;
    }
    setReadTimes(line);
    tcsetattr(fd, TCSANOW, &line);
    if (rs485)
        enableRs485(fd);
    // Standard input, not the port: deliberate.
    fcntl(0, F_SETFL, O_NONBLOCK);
    *slot = fd;
    return 1;
}

// An RS-422 pair runs over two UARTs, each with its transceiver in RS-485 mode. Handled in any
// case; a side that failed to open shows as -1.
static int openRs422(const PortRequest &request)
{
    openDevice(Uart3, request, true, request.writeFd);
    openDevice(Uart4, request, true, request.readFd);
    return 1;
}

int openPort(const PortRequest &request)
{
    const struct {
        quint8 port;
        PortMode mode;
        const char *device;
    } devices[] = {
        {1, PortMode::RS232, Uart1}, {1, PortMode::RS485, Uart3}, {2, PortMode::RS485, Uart4}};
    if (request.port == 2 && request.mode == PortMode::RS422)
        return openRs422(request);
    for (const auto &row : devices) {
        if (row.port != request.port || row.mode != request.mode)
            continue;
        const bool rs485 = request.mode == PortMode::RS485;
        const int handled = openDevice(row.device, request, rs485, request.readFd);
        *request.writeFd = *request.readFd; // -1 after a failure
        return handled;
    }
    return 0;
}

static void closeIfOpen(qint32 fd)
{
    if (fd != 0)
        close(fd);
}

// One number in both is closed twice, deliberately; the kernel refuses the second close.
void closePair(qint32 &readFd, qint32 &writeFd)
{
    closeIfOpen(readFd);
    closeIfOpen(writeFd);
    readFd = writeFd = 0;
}

int openCom1(int mode)
{
    if (mode == ComRS232) {
        closeIfOpen(Com1OpenRS232_R_fd2);
        Com1OpenRS232_R_fd2 = Com1OpenRS232_W_fd2 = 0;
        return openPort({1, PortMode::RS232, 9600, 8, ParityEven, 1, 1, &Com1OpenRS232_R_fd2,
                         &Com1OpenRS232_W_fd2});
    }
    if (mode != ComRS485)
        return 0;
    closePair(Com1OpenRS4xx_R_fd2, Com1OpenRS4xx_W_fd2);
    return openPort({1, PortMode::RS485, 9600, 7, ParityEven, 1, 0, &Com1OpenRS4xx_R_fd2,
                     &Com1OpenRS4xx_W_fd2});
}

static int openRs4xx(quint8 port, int mode, qint32 *readFd, qint32 *writeFd)
{
    if (mode != ComRS485 && mode != ComRS422)
        return 0;
    closePair(*readFd, *writeFd);
    if (mode == ComRS485)
        return openPort({port, PortMode::RS485, 9600, 7, ParityEven, 1, 0, readFd, writeFd});
    return openPort({port, PortMode::RS422, 19200, 8, ParityNone, 1, 0, readFd, writeFd});
}

int openCom2(int mode)
{
    return openRs4xx(2, mode, &Com2OpenRS4xx_R_fd2, &Com2OpenRS4xx_W_fd2);
}

int openCom3(int mode)
{
    return openRs4xx(3, mode, &Com3OpenRS4xx_R_fd2, &Com3OpenRS4xx_W_fd2);
}

static void openUsb(const char *path, qint32 &fd)
{
    fd = open(path, O_RDWR | O_NOCTTY);
    if (fd < 1) {
        fd = -1;
        return;
    }
    const termios line = usbLine();
    tcflush(fd, TCIFLUSH);
    tcsetattr(fd, TCSANOW, &line);
}

static void closeUsb(qint32 &fd)
{
    if (fd <= 0)
        return;
    close(fd);
    fd = -1;
}

void openUsbHost()
{
    openUsb("/dev/ttyUSB0", ttyUSB0_fd);
}

void openUsbGadget()
{
    openUsb("/dev/ttyGS0", ttyGS0_fd);
}

void closeUsbHost()
{
    closeUsb(ttyUSB0_fd);
}

void closeUsbGadget()
{
    closeUsb(ttyGS0_fd);
}

void dropPort(qint32 &readFd, qint32 &writeFd)
{
    closeIfOpen(readFd);
    readFd = writeFd = 0;
}

int readExactly(int fd, char *buffer, int count)
{
    for (int i = 0; i < count; ++i) {
        if (read(fd, buffer + i, 1) >= 1)
            continue;
        QThread::usleep(EmptyReadPauseUs); // all of it, whatever child ends meanwhile
        if (read(fd, buffer + i, 1) < 1)
            return 0;
    }
    return count;
}

void drainPort(int fd)
{
    char stale[DrainSize];
    readExactly(fd, stale, sizeof stale);
}

int writePort(int fd, const char *bytes, int count)
{
    if (fd <= 0) // a port that is not open: 0 is standard input
        return -1;
    return int(write(fd, bytes, size_t(count)));
}
