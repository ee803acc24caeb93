#include "pfvpexchange.h"

#include "link/serialports.h"
#include "state/linkstate.h"

#include <QDeadlineTimer>
#include <QThread>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

constexpr int TextLength = 19; // of every request and answer, line end included
constexpr int DrainBlock = 30;
constexpr int DrainMs = 3000; // what a driver holds comes in a fraction of it
constexpr unsigned long AnswerWaitS = 2; // several polls of the peer
constexpr int UsbWaitMs = 300;

struct Texts {
    const char *request, *answer;

    static bool equal(const char *received, const char *expected)
    {
        return memcmp(received, expected, TextLength) == 0;
    }
};

// --- Serial --------------------------------------------------------------------------------------

struct SerialExchange {
    Texts texts;
    const qint32 &readFd, &writeFd;
};

static const SerialExchange com1Rs232 = {
    {"PFVPV01 COM1RS232\r\n", "PFVPV01 COM1RS232OK"}, Com1OpenRS232_R_fd2, Com1OpenRS232_W_fd2};
static const SerialExchange com1Rs485 = {
    {"PFVPV01 COM1RS485\r\n", "PFVPV01 COM1RS485OK"}, Com1OpenRS4xx_R_fd2, Com1OpenRS4xx_W_fd2};
static const SerialExchange com2Rs485 = {
    {"PFVPV01 COM2RS485\r\n", "PFVPV01 COM2RS485OK"}, Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2};
static const SerialExchange com3Rs485 = {
    {"PFVPV01 COM3RS485\r\n", "PFVPV01 COM3RS485OK"}, Com3OpenRS4xx_R_fd2, Com3OpenRS4xx_W_fd2};

// Until the line is quiet. One that gives for longer is not stale but noisy; waiting for its end
// would stop the cycle.
static void drainLine(int fd)
{
    char stale[DrainBlock];
    const QDeadlineTimer end(DrainMs);
    while (readExactly(fd, stale, DrainBlock) && !end.hasExpired())
        continue;
}

static bool ask(const SerialExchange &exchange)
{
    drainLine(exchange.readFd);
    writePort(exchange.writeFd, exchange.texts.request, TextLength);
    QThread::sleep(AnswerWaitS);
    char received[TextLength];
    return readExactly(exchange.readFd, received, TextLength)
        && Texts::equal(received, exchange.texts.answer);
}

static void answer(const SerialExchange &exchange)
{
    char received[TextLength];
    if (readExactly(exchange.readFd, received, TextLength)
        && Texts::equal(received, exchange.texts.request))
        writePort(exchange.writeFd, exchange.texts.answer, TextLength);
}

// --- USB -----------------------------------------------------------------------------------------

struct UsbPort {
    const qint32 &fd;
    void (*open)();
    void (*close)();
};

static const UsbPort hostPort = {ttyUSB0_fd, openUsbHost, closeUsbHost};
static const UsbPort gadgetPort = {ttyGS0_fd, openUsbGadget, closeUsbGadget};

// The cable is crossed: what one panel's host port sends arrives at the other's gadget port.
struct UsbExchange {
    Texts texts;
    const UsbPort &asks, &answers;
};

static const UsbExchange usbHost = {
    {"PFVPV01 USBHOST S\r\n", "PFVPV01 USBHOST R\r\n"}, hostPort, gadgetPort};
static const UsbExchange usbDevice = {
    {"PFVPV01 USBDEVI S\r\n", "PFVPV01 USBDEVI R\r\n"}, gadgetPort, hostPort};

static bool waitFor(int fd, short event)
{
    pollfd port = {fd, event, 0};
    return poll(&port, 1, UsbWaitMs) > 0;
}

// The descriptor blocks, so what a port without a listener has no room for is not written at all.
static void writeBlocking(int fd, const char *text)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    if (waitFor(fd, POLLOUT))
        writePort(fd, text, TextLength);
}

// Whether `expected` comes in within the wait. A read of nothing is a port whose device has gone:
// it is closed, and opened again the next time it is needed.
static bool receive(const UsbPort &port, const char *expected)
{
    if (!waitFor(port.fd, POLLIN))
        return false;
    char received[TextLength] = {};
    if (read(port.fd, received, TextLength) == 0)
        port.close();
    return Texts::equal(received, expected);
}

// False also when the port has just been opened: its turn is the next time.
static bool isUsable(const UsbPort &port)
{
    if (port.fd >= 1)
        return true;
    port.open();
    return false;
}

static bool ask(const UsbExchange &exchange)
{
    if (!isUsable(exchange.asks))
        return false;
    writeBlocking(exchange.asks.fd, exchange.texts.request);
    return receive(exchange.asks, exchange.texts.answer);
}

static void answer(const UsbExchange &exchange)
{
    if (isUsable(exchange.answers) && receive(exchange.answers, exchange.texts.request))
        writeBlocking(exchange.answers.fd, exchange.texts.answer);
}

// --- Items ---------------------------------------------------------------------------------------

bool askCom1Rs232()
{
    return ask(com1Rs232);
}

bool askCom1Rs485()
{
    return ask(com1Rs485);
}

bool askCom2Rs485()
{
    return ask(com2Rs485);
}

bool askCom3Rs485()
{
    return ask(com3Rs485);
}

bool askUsbHost()
{
    return ask(usbHost);
}

bool askUsbDevice()
{
    return ask(usbDevice);
}

void answerPeer()
{
    answer(com1Rs232);
    answer(com2Rs485);
    answer(com1Rs485);
    answer(usbHost);
    answer(usbDevice);
}

void answerCom3Rs485()
{
    answer(com3Rs485);
}
