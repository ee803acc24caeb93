// Frames and line settings as values, and the byte-level routines on a pty.
#include "link/frame.h"
#include "link/linesettings.h"
#include "link/serialports.h"

#include <QElapsedTimer>
#include <QTest>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

class LinkTest : public QObject {
    Q_OBJECT

private slots:
    void requests_data();
    void requests();
    void replies_data();
    void replies();
    void lineSettings_data();
    void lineSettings();
    void unknownSettingsAreRefused_data();
    void unknownSettingsAreRefused();
    void speeds();
    void readsExactly_data();
    void readsExactly();
    void drainsOneBlock();
};

void LinkTest::requests_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("station");
    QTest::addColumn<QByteArray>("code"); // empty: not dispatched
    const auto row = [](const char *name, const QByteArray &frame, int station,
                        const QByteArray &code) {
        QTest::newRow(name) << frame << station << code;
    };
    row("to every panel", ":0081027D\r\n", 0, "8102");
    row("to every panel, one with a station", ":0081027D\r\n", 5, "8102");
    row("to this station", ":05810278\r\n", 5, "8102");
    row("to this station in lower case", ":ff81027E\r\n", 255, "8102");
    row("to another station", ":05810278\r\n", 0, "");
    row("the station number comes to any station", ":058A0071\r\n", 0, "8A00");
    row("the same with a wrong LRC", ":058A0072\r\n", 0, "");
    row("with data", ":008102123437\r\n", 0, "8102");
    row("LRC in lower case", ":0081027d\r\n", 0, "");
    row("LRC wrong", ":0081027C\r\n", 0, "");
    row("NUL in the code", QByteArray(":0081\0002FF\r\n", 12), 0, "");
    row("no start", ";0081027D\r\n", 0, "");
    row("line feed alone", ":0081027DD\n", 0, "");
    row("line end reversed", ":0081027D\n\r", 0, "");
    row("only a line end", ":\r\n", 0, "");
    row("no code", ":00FF\r\n", 0, "");
    row("nothing", "", 0, "");
}

void LinkTest::requests()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, station);
    QFETCH(QByteArray, code);
    char found[CodeSize + 1] = {};
    QCOMPARE(checkFrame(frame.constData(), found, quint8(station)), !code.isEmpty());
    if (!code.isEmpty())
        QCOMPARE(QByteArray(found), code);
}

void LinkTest::replies_data()
{
    QTest::addColumn<QByteArray>("station");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("frame");
    const auto row = [](const char *name, const char *station, const QByteArray &payload,
                        const QByteArray &frame) {
        QTest::newRow(name) << QByteArray(station) << payload << frame;
    };
    row("station 0", "00", "81F2", ":0081F28D\r\n");
    row("station 5", "05", "81F2", ":0581F288\r\n");
    row("the last digit of an odd payload counts alone", "00", "81F", ":0081F70\r\n");
    row("sum of zero", "00", "FF01", ":00FF0100\r\n");
    row("longest", "00", QByteArray(30, '1'), ":00" + QByteArray(30, '1') + "01\r\n");
    row("longer is cut", "00", QByteArray(31, '1'), ":00" + QByteArray(30, '1') + "01\r\n");
}

void LinkTest::replies()
{
    QFETCH(QByteArray, station);
    QFETCH(QByteArray, payload);
    QTEST(buildFrame(station, payload), "frame");
}

static PortRequest request(int dataBits, int parity, int stopBits, int flow)
{
    return {1, PortMode::RS232, 9600, dataBits, parity, stopBits, flow, nullptr, nullptr};
}

void LinkTest::lineSettings_data()
{
    QTest::addColumn<int>("dataBits");
    QTest::addColumn<int>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<int>("flow");
    QTest::addColumn<uint>("control");
    QTest::addColumn<bool>("checked"); // parity errors and the eighth bit are dealt with
    const uint always = CREAD | CLOCAL;
    QTest::newRow("8E1 with handshake")
        << 8 << 2 << 1 << 1 << (always | CS8 | PARENB | CRTSCTS) << true;
    QTest::newRow("7E1") << 7 << 2 << 1 << 0 << (always | CS7 | PARENB) << true;
    QTest::newRow("8N1") << 8 << 0 << 1 << 0 << (always | CS8) << false;
    QTest::newRow("6O2") << 6 << 1 << 2 << 0 << (always | CS6 | PARENB | PARODD | CSTOPB) << true;
    QTest::newRow("space") << 5 << 3 << 1 << 0 << (always | CS5 | PARENB | CMSPAR) << false;
    QTest::newRow("mark") << 8 << 4 << 1 << 0 << (always | CS8 | PARENB | PARODD | CMSPAR) << false;
}

// From a record with nothing set and from one with everything set (but what no setting touches).
void LinkTest::lineSettings()
{
    QFETCH(int, dataBits);
    QFETCH(int, parity);
    QFETCH(int, stopBits);
    QFETCH(int, flow);
    QFETCH(uint, control);
    QFETCH(bool, checked);
    for (uint before : {0u, uint(CSIZE | CSTOPB | CRTSCTS | CBAUD)}) {
        termios line = {};
        line.c_iflag = line.c_lflag = before ? ~0u : 0u;
        line.c_oflag = before ? 0xFF : 0;
        line.c_cflag = before;
        setRaw(line);
        QVERIFY(setFrame(line, request(dataBits, parity, stopBits, flow)));
        QCOMPARE(uint(line.c_cflag), control);
        QCOMPARE(bool(line.c_iflag & INPCK), checked);
        QCOMPARE(bool(line.c_iflag & ISTRIP), checked);
        QVERIFY(!(line.c_iflag & (IGNBRK | BRKINT | PARMRK | INLCR | ICRNL | IXON)));
        QVERIFY(!(line.c_lflag & (ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN)));
        QCOMPARE(uint(line.c_oflag), before ? 0x80u : 0u);
    }
}

void LinkTest::unknownSettingsAreRefused_data()
{
    QTest::addColumn<int>("dataBits");
    QTest::addColumn<int>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<int>("flow");
    QTest::newRow("parity") << 8 << 5 << 1 << 0;
    QTest::newRow("no parity code") << 8 << -1 << 1 << 0;
    QTest::newRow("4 data bits") << 4 << 0 << 1 << 0;
    QTest::newRow("9 data bits") << 9 << 0 << 1 << 0;
    QTest::newRow("3 stop bits") << 8 << 0 << 3 << 0;
    QTest::newRow("flow control") << 8 << 0 << 1 << 2;
}

void LinkTest::unknownSettingsAreRefused()
{
    QFETCH(int, dataBits);
    QFETCH(int, parity);
    QFETCH(int, stopBits);
    QFETCH(int, flow);
    termios line = {};
    QVERIFY(!setFrame(line, request(dataBits, parity, stopBits, flow)));
}

void LinkTest::speeds()
{
    QCOMPARE(standardSpeed(9600), speed_t(B9600));
    QCOMPARE(standardSpeed(19200), speed_t(B19200));
    QCOMPARE(standardSpeed(14400), speed_t(B0)); // by the divisor
    const termios usb = usbLine();
    QCOMPARE(uint(usb.c_cflag | usb.c_iflag | usb.c_lflag | usb.c_oflag), 0u);
    QCOMPARE(int(usb.c_cc[VMIN]), 1);
    QCOMPARE(int(usb.c_cc[VTIME]), 5);
}

// --- On a pty -----------------------------------------------------------------------------------

struct Line {
    Line()
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(master);
        unlockpt(master);
        slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_NONBLOCK);
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

void LinkTest::readsExactly_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("later"); // 2 ms after the reading began
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("buffer");
    QTest::newRow("all there") << QByteArray("0123456789A") << QByteArray() << 11
                               << QByteArray("0123456789A");
    QTest::newRow("more than asked for")
        << QByteArray("0123456789ABC") << QByteArray() << 11 << QByteArray("0123456789A");
    QTest::newRow("a gap") << QByteArray("01234") << QByteArray("56789A") << 11
                           << QByteArray("0123456789A");
    QTest::newRow("a peer that stops")
        << QByteArray("01234") << QByteArray() << 0 << QByteArray("01234");
    QTest::newRow("silence") << QByteArray() << QByteArray() << 0 << QByteArray();
}

void LinkTest::readsExactly()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, later);
    Line line;
    writePort(line.master, first.constData(), first.size());
    std::thread peer([&] {
        usleep(2000);
        writePort(line.master, later.constData(), later.size());
    });
    char buffer[30] = {};
    QElapsedTimer time;
    time.start();
    const int got = readExactly(line.slave, buffer, 11);
    const qint64 took = time.elapsed();
    peer.join();
    QTEST(got, "result");
    QTEST(QByteArray(buffer), "buffer");
    QVERIFY2(got || took >= 20, qPrintable(QString::number(took)));
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

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
