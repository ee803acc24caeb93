#include "station/link.h"

#include "panel/bencherror.h"
#include "station/codec.h"
#include "station/protocol.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>

// Texts without a line end are over when the line has been still for this long: well above the 16
// ms that USB adapters hold bytes back, well below a person's patience.
static constexpr int quietMs = 60;

static QString remedy(const QSerialPort &port)
{
    switch (port.error()) {
    case QSerialPort::PermissionError:
        return "busy or not permitted (fuser -v PORT shows who has it; usermod -aG dialout $USER)";
    case QSerialPort::ResourceError:
    case QSerialPort::ReadError:
    case QSerialPort::WriteError:
    case QSerialPort::UnknownError: // what a pty gives whose other end is gone
        return "the port has failed (is the adapter still plugged in?)";
    default:
        return port.errorString();
    }
}

// QSerialPort takes any name without a leading slash to be below /dev; a path as people type it may
// begin in this folder, a pty's be its number.
static QString absolute(const QString &path)
{
    for (const char *const folder : {"", "/dev/", "/dev/pts/"}) {
        const QFileInfo file(folder + path);
        if (file.exists() && !file.isDir())
            return file.absoluteFilePath();
    }
    throw BenchError(path
                     + ": no such device (ls /dev/ttyUSB* /dev/ttyS*; is the adapter plugged in?)");
}

void Link::open(const QString &path, int level)
{
    port_.close();
    path_ = absolute(path);
    port_.setPortName(path_);
    if (!port_.open(QIODevice::ReadWrite))
        throw BenchError(QString("%1: %2").arg(path_, remedy(port_)));
    const bool bus = level == Bi;
    // Evaluated one by one: a pty refuses some of these, and what it takes is to be set all the
    // same.
    const bool baud = port_.setBaudRate(9600);
    const bool data = port_.setDataBits(bus ? QSerialPort::Data7 : QSerialPort::Data8);
    const bool parity = port_.setParity(QSerialPort::EvenParity);
    const bool stop = port_.setStopBits(QSerialPort::OneStop);
    const bool flow =
        port_.setFlowControl(bus ? QSerialPort::NoFlowControl : QSerialPort::HardwareControl);
    const bool pty = QFileInfo(path_).canonicalFilePath().startsWith("/dev/pts/");
    if (!pty && !(baud && data && parity && stop && flow))
        fprintf(stderr, "%s: the port refuses 9600 baud %s; replies may be garbled\n",
                qPrintable(path_), bus ? "7E1" : "8E1 with RTS/CTS");
    port_.clear();
    port_.clearError();
    owed_ = 0;
}

bool Link::awaitBytes(int ms)
{
    if (port_.bytesAvailable() > 0)
        return true;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(&port_, &QSerialPort::readyRead, &loop, &QEventLoop::quit);
    QObject::connect(&port_, &QSerialPort::errorOccurred, &loop, &QEventLoop::quit);
    timer.start(qMax(0, ms));
    if (loop.exec() == -1)
        throw BenchError("interrupted"); // the application or the thread was told to quit
    return port_.bytesAvailable() > 0;
}

// Whether a complete answer ends the wait; damaged ones and noise do not, the good one may still
// come.
static bool isAnswer(const QByteArray &bytes, bool framed)
{
    const Reply::Kind kind = decode(bytes).kind;
    return framed ? kind == Reply::Frame || kind == Reply::Identity || kind == Reply::Battery
                  : kind != Reply::None && kind != Reply::Damaged;
}

QByteArray Link::awaitAnswer(const Request &request, qint64 *lastByteNs)
{
    QElapsedTimer clock;
    clock.start();
    QByteArray bytes;
    bool quiet = false;
    while (port_.error() == QSerialPort::NoError) {
        const int left = request.timeoutMs - int(clock.elapsed());
        if (left <= (bytes.isEmpty() || quiet ? 0 : -1000)) { // an answer that has begun may end
            break;
        }
        quiet = !awaitBytes(bytes.isEmpty() ? left : quietMs);
        if (!quiet) {
            bytes += port_.readAll();
            *lastByteNs = clock.nsecsElapsed();
        }
        if (!isComplete(bytes, quiet))
            continue;
        if (owed_ > 0 && bytes == lastAnswer_) { // the late answer to a request already repeated
            --owed_;
            bytes.clear();
            continue;
        }
        if (isAnswer(bytes, request.framed))
            break;
    }
    return bytes;
}

Link::Answer Link::exchange(const Request &request)
{
    Answer answer;
    const int tries = request.silence ? 1 : qMax(1, request.tries);
    if (owed_ == 0)
        port_.readAll(); // nothing is due: what lies there is noise
    while (answer.tries < tries && port_.error() == QSerialPort::NoError) {
        ++answer.tries;
        QElapsedTimer clock;
        clock.start();
        qint64 before = 0, lastByteNs = 0;
        port_.write(request.bytes);
        port_.flush();
        if (request.during) {
            request.during();
            before = clock.nsecsElapsed();
        }
        answer.bytes = awaitAnswer(request, &lastByteNs);
        answer.ms = (answer.bytes.isEmpty() ? clock.nsecsElapsed() : before + lastByteNs) / 1e6;
        if (isAnswer(answer.bytes, request.framed))
            break;
    }
    owed_ = answer.tries - 1;
    lastAnswer_ = answer.bytes;
    answer.error = failure();
    return answer;
}

QString Link::failure() const
{
    return port_.error() == QSerialPort::NoError ? QString()
                                                 : QString("%1: %2").arg(path_, remedy(port_));
}
