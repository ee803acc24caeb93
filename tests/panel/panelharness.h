#pragma once

#include "panel/virtualpanel.h"

#include <QElapsedTimer>
#include <QSerialPort>
#include <QtTest>

#include <memory>
#include <numeric>

#ifdef __SANITIZE_THREAD__
// The bench hands work to its I/O thread and waits for it, through a toolkit that is not built with
// ThreadSanitizer, which sees no order in that. Judged is the agent, a process of its own: the
// sandbox switches the reports on again.
extern "C" const char *__tsan_default_options()
{
    return "report_bugs=0";
}
#endif

// Longest wait for what must come; generous, for the machine may be busy with something else.
constexpr int DeadlineMs = 30000;
#undef QTRY_VERIFY
#undef QTRY_VERIFY2
#undef QTRY_COMPARE
#define QTRY_VERIFY(...) QTRY_VERIFY_WITH_TIMEOUT((__VA_ARGS__), DeadlineMs)
#define QTRY_VERIFY2(expr, said) QTRY_VERIFY2_WITH_TIMEOUT(expr, said, DeadlineMs)
#define QTRY_COMPARE(expr, wanted) QTRY_COMPARE_WITH_TIMEOUT(expr, wanted, DeadlineMs)

// The rows of a test from structures, each with its name first. The test has QFETCH(Row, row).
template <typename Row> void addRows(const QVector<Row> &rows)
{
    QTest::addColumn<Row>("row");
    for (const Row &row : rows)
        QTest::newRow(row.name) << row;
}

// Options of a panel that runs something else than the agent, to look at the bench itself.
inline PanelOptions running(const QString &program)
{
    PanelOptions options;
    options.agent = program;
    return options;
}

// Options of a panel whose medium fails: `injection`, in the words of strace, on the file `path`.
inline PanelOptions failing(const QString &path, const QString &injection)
{
    PanelOptions options;
    options.wrapper =
        QString("strace -D -f -o /dev/null -P %1 -e inject=%2").arg(path, injection).split(' ');
    return options;
}

// Runs a shell script as the panel's agent until it ends; what it printed.
inline QByteArray runInside(VirtualPanel &panel, const QString &script, int ms = DeadlineMs)
{
    panel.powerOn({"-c", script});
    panel.waitForExit(ms);
    panel.powerOff();
    return panel.output();
}

// The request frame of a four-character code to station `station`.
inline QByteArray requestFrame(const QByteArray &code, const QByteArray &station = "00")
{
    uchar sum = 0;
    for (char byte : QByteArray::fromHex(station + code))
        sum = uchar(sum + uchar(byte));
    return ':' + station + code + QByteArray::number(uchar(-sum) | 0x100, 16).right(2).toUpper()
        + "\r\n";
}

// A clock request, `kind` "8D" (set) or "8E" (compare). The two columns between month and year are
// filled with the weekday.
inline QByteArray clockRequest(const QByteArray &kind, const QDateTime &time)
{
    const QByteArray weekday = QByteArray::number(time.date().dayOfWeek() % 7);
    return requestFrame(kind + time.toString("ssmmHHddMM").toLatin1() + '0' + weekday
                        + time.toString("yy").toLatin1());
}

// A frame that carries an identity, whose check is made of the characters themselves.
inline QByteArray identityFrame(const QByteArray &code, const QByteArray &id)
{
    const QByteArray body = "00" + code + id;
    const int sum = std::accumulate(body.begin(), body.end(), 0);
    return ':' + body + QByteArray::number(uchar(-sum) | 0x100, 16).right(2).toUpper() + "\r\n";
}

// A PC-side program on one of the panel's ports.
class PcPort {
public:
    explicit PcPort(VirtualPanel &panel, Port port = Port::ttyO1)
    {
        serial_.setPortName(panel.linkPath(port));
        if (!serial_.open(QIODevice::ReadWrite))
            qFatal("%s: %s", qPrintable(serial_.portName()), qPrintable(serial_.errorString()));
    }
    void write(const QByteArray &bytes)
    {
        serial_.write(bytes);
        serial_.flush();
    }
    // What arrives until `size` bytes are there or `ms` are over.
    QByteArray read(int size, int ms = DeadlineMs)
    {
        QElapsedTimer clock;
        clock.start();
        QByteArray bytes;
        while (bytes.size() < size && clock.elapsed() < ms) {
            serial_.waitForReadyRead(10);
            bytes += serial_.readAll();
        }
        return bytes;
    }
    QByteArray ask(const QByteArray &request, int size = 11)
    {
        write(request);
        return read(size);
    }

private:
    QSerialPort serial_;
};

// How often the panel's program has waited for something, in its main thread.
inline int sleeps(const VirtualPanel &panel)
{
    QFile status(QString("/proc/%1/status").arg(panel.agentPid()));
    const char key[] = "\nvoluntary_ctxt_switches:";
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf(key) + int(sizeof key)).split('\n').value(0).toInt();
}

// Waits until all that was sent to the panel's port is there, and its program has then waited for
// something `more` times: a wait that a busy machine makes longer. False if that takes too long.
inline bool settle(VirtualPanel &panel, Port port, int more)
{
    if (!waitFor([&] { return panel.port(port)->isDelivered(); }, DeadlineMs))
        return false;
    const int settled = sleeps(panel) + more;
    return waitFor([&] { return sleeps(panel) >= settled; }, DeadlineMs);
}

// Colour of the screen at a spot; black when there is no picture.
inline QColor colourAt(const QImage &image, int x, int y)
{
    return image.isNull() ? QColor(Qt::black) : image.pixelColor(x, y);
}

// How many pixels of a part of two screens differ.
inline int differingPixels(const QImage &a, const QImage &b, const QRect &part = {0, 0, 800, 480})
{
    int count = 0;
    for (int y = part.top(); y <= part.bottom(); ++y) {
        for (int x = part.left(); x <= part.right(); ++x)
            count += colourAt(a, x, y) != colourAt(b, x, y);
    }
    return count;
}
