// Frames and line settings as values, and the byte-level routines on a pty.
#include "link/frame.h"
#include "link/linesettings.h"
#include "link/serialports.h"
#include "state/teststate.h"

#include <QElapsedTimer>
#include <QTest>
#include <fcntl.h>
#include <pty.h>
#include <thread>
#include <unistd.h>

class LinkTest : public QObject {
    Q_OBJECT

private slots:
    void requests();
    void replies();
    void lineSettings();
    void unknownSettingsAreRefused();
    void speeds();
    void readsExactly();
    void drainsOneBlock();
    void portsThatAreNotThere();
};

void LinkTest::requests()
{
    const struct {
        const char *name;
        QByteArray frame;
        int station;
        QByteArray code; // empty: not dispatched
    } rows[] = {
        {"to every panel", ":0081027D\r\n", 0, "8102"},
        {"to every panel, one with a station", ":0081027D\r\n", 5, "8102"},
        {"to this station", ":05810278\r\n", 5, "8102"},
        {"to this station in lower case", ":ff81027E\r\n", 255, "8102"},
        {"to another station", ":05810278\r\n", 0, ""},
        {"the station number comes to any station", ":058A0071\r\n", 0, "8A00"},
        {"the same with a wrong LRC", ":058A0072\r\n", 0, ""},
        {"with data", ":008102123437\r\n", 0, "8102"},
        {"LRC in lower case", ":0081027d\r\n", 0, ""},
        {"LRC wrong", ":0081027C\r\n", 0, ""},
        {"NUL in the code", QByteArray(":0081\0002FF\r\n", 12), 0, ""},
        {"no start", ";0081027D\r\n", 0, ""},
        {"line feed alone", ":0081027DD\n", 0, ""},
        {"line end reversed", ":0081027D\n\r", 0, ""},
        {"only a line end", ":\r\n", 0, ""},
        {"no code", ":00FF\r\n", 0, ""},
        {"nothing", "", 0, ""},
    };
    for (const auto &row : rows) {
        char found[CodeSize + 1] = {};
        const bool taken = checkFrame(row.frame.constData(), found, quint8(row.station));
        QVERIFY2((taken ? found : "") == row.code, row.name);
    }
}

void LinkTest::replies()
{
    const QByteArray longest(30, '1');
    const struct {
        const char *name;
        QByteArray station, payload, frame;
    } rows[] = {
        {"station 0", "00", "81F2", ":0081F28D\r\n"},
        {"station 5", "05", "81F2", ":0581F288\r\n"},
        {"the last digit of an odd payload counts alone", "00", "81F", ":0081F70\r\n"},
        {"sum of zero", "00", "FF01", ":00FF0100\r\n"},
        {"longest", "00", longest, ":00" + longest + "01\r\n"},
        {"longer is cut", "00", longest + '1', ":00" + longest + "01\r\n"},
    };
    for (const auto &row : rows)
        QVERIFY2(buildFrame(row.station, row.payload) == row.frame, row.name);
}

static PortRequest request(int dataBits, int parity, int stopBits, int flow)
{
    return {1, PortMode::RS232, 9600, dataBits, parity, stopBits, flow, nullptr, nullptr};
}

// From a record with nothing set and from one with everything set (but what no setting touches).
void LinkTest::lineSettings()
{
    const struct {
        const char *name;
        PortRequest request;
        uint control; // beside CREAD and CLOCAL
        bool checked; // parity errors and the eighth bit are dealt with
    } rows[] = {
        {"8E1 with handshake", request(8, 2, 1, 1), CS8 | PARENB | CRTSCTS, true},
        {"7E1", request(7, 2, 1, 0), CS7 | PARENB, true},
        {"8N1", request(8, 0, 1, 0), CS8, false},
        {"6O2", request(6, 1, 2, 0), CS6 | PARENB | PARODD | CSTOPB, true},
        {"space", request(5, 3, 1, 0), CS5 | PARENB | CMSPAR, false},
        {"mark", request(8, 4, 1, 0), CS8 | PARENB | PARODD | CMSPAR, false},
    };
    for (const auto &row : rows) {
        for (uint before : {0u, uint(CSIZE | CSTOPB | CRTSCTS | CBAUD), uint(PARODD)}) {
            const uint kept = row.control & PARENB ? 0 : before & PARODD;
            termios line = {};
            line.c_iflag = line.c_lflag = before ? ~0u : 0u;
            line.c_oflag = before ? 0xFF : 0;
            line.c_cflag = before;
            setRaw(line);
            QVERIFY2(setFrame(line, row.request), row.name);
            QVERIFY2(line.c_cflag == (CREAD | CLOCAL | row.control | kept), row.name);
            QVERIFY2(bool(line.c_iflag & INPCK) == row.checked, row.name);
            QVERIFY2(bool(line.c_iflag & ISTRIP) == row.checked, row.name);
            QVERIFY(!(line.c_iflag & (IGNBRK | BRKINT | PARMRK | INLCR | ICRNL | IXON)));
            QVERIFY(!(line.c_lflag & (ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN)));
            QCOMPARE(uint(line.c_oflag), before ? 0x80u : 0u);
        }
    }
}

void LinkTest::unknownSettingsAreRefused()
{
    termios line = {};
    for (const PortRequest &unknown :
         {request(8, 5, 1, 0), request(8, -1, 1, 0), request(4, 0, 1, 0), request(9, 0, 1, 0),
          request(8, 0, 3, 0), request(8, 0, 1, 2)})
        QVERIFY(!setFrame(line, unknown));
}

void LinkTest::speeds()
{
    const QMap<int, speed_t> codes = {
        {4800, B4800},   {9600, B9600},     {19200, B19200}, {38400, B38400},
        {57600, B57600}, {115200, B115200}, {14400, B0}, // by the divisor
    };
    for (auto code = codes.begin(); code != codes.end(); ++code)
        QCOMPARE(standardSpeed(code.key()), code.value());
    const termios usb = usbLine();
    QCOMPARE(uint(usb.c_cflag | usb.c_iflag | usb.c_lflag | usb.c_oflag), 0u);
    QCOMPARE(int(usb.c_cc[VMIN]), 1);
    QCOMPARE(int(usb.c_cc[VTIME]), 5);
}

// --- On a pty -----------------------------------------------------------------------------------

struct Line {
    Line()
    {
        openpty(&master, &slave, nullptr, nullptr, nullptr);
        fcntl(slave, F_SETFL, O_NONBLOCK);
        termios line = {};
        tcgetattr(slave, &line);
        cfmakeraw(&line);
        tcsetattr(slave, TCSANOW, &line);
    }
    ~Line()
    {
        close(slave);
        close(master);
    }
    int master, slave;
};

void LinkTest::readsExactly()
{
    const struct {
        const char *name;
        QByteArray first, later; // 2 ms after the reading began
        int result;
        QByteArray buffer;
    } rows[] = {
        {"all there", "0123456789A", "", 11, "0123456789A"},
        {"more than asked for", "0123456789ABC", "", 11, "0123456789A"},
        {"a gap", "01234", "56789A", 11, "0123456789A"},
        {"a peer that stops", "01234", "", 0, "01234"},
        {"silence", "", "", 0, ""},
    };
    for (const auto &row : rows) {
        int got = 0;
        qint64 took = 0;
        char buffer[30];
        // On a busy machine the peer is too late more often than not.
        for (int tries = 0; got != row.result || tries == 0; ++tries) {
            QVERIFY2(tries < 100, row.name);
            Line line;
            writePort(line.master, row.first.constData(), row.first.size());
            std::thread peer([&] {
                usleep(2000);
                writePort(line.master, row.later.constData(), row.later.size());
            });
            memset(buffer, 0, sizeof buffer);
            QElapsedTimer time;
            time.start();
            got = readExactly(line.slave, buffer, 11);
            took = time.elapsed();
            peer.join();
        }
        QVERIFY2(got == row.result && buffer == row.buffer, row.name);
        QVERIFY2(got || took >= 20, qPrintable(QString::number(took)));
    }
}

void LinkTest::drainsOneBlock()
{
    Line line;
    writePort(line.master, QByteArray(32, 'x').constData(), 32);
    drainPort(line.slave);
    char rest[30] = {};
    QCOMPARE(readExactly(line.slave, rest, 3), 0);
    QCOMPARE(QByteArray(rest), QByteArray("xx"));
}

// This machine has none of the panel's. What would go to standard input here succeeds.
void LinkTest::portsThatAreNotThere()
{
    QCOMPARE(dup2(open("/dev/null", O_WRONLY), 0), 0);
    QCOMPARE(openCom1(ComRS485) + openCom2(ComRS485) + openCom3(ComRS485), 0);
    for (const qint32 fd :
         {Com1OpenRS4xx_R_fd2, Com1OpenRS4xx_W_fd2, Com2OpenRS4xx_R_fd2, Com2OpenRS4xx_W_fd2})
        QCOMPARE(fd, -1);
    for (const int fd : {Com2OpenRS4xx_W_fd2, Com3OpenRS4xx_W_fd2})
        QCOMPARE(writePort(fd, "x", 1), -1);
}

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
