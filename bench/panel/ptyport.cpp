#include "panel/ptyport.h"
#include "panel/bencherror.h"
#include "panel/files.h"

#include <QFile>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

struct PortTrait {
    const char *name;
    int bitsPerByte; // on the wire, start to stop bit; the pty keeps neither parity nor 7 data bits
};
const PortTrait traits[portCount] = {
    {"ttyO1", 11}, // 8E1
    {"ttyO3", 10}, // 7E1, or 8N1 as half of RS-422
    {"ttyO4", 10}, {"ttyUSB0", 10}, {"ttyGS0", 10},
};

// The UART hands on what it has received when its FIFO is full or the line falls silent. So a frame
// is not torn when this machine is busy for longer than the panel waits for a byte.
constexpr int fifoSize = 64;

struct SpeedCode {
    speed_t code;
    int baud;
};
const SpeedCode speeds[] = {
    {B4800, 4800},   {B9600, 9600},   {B19200, 19200},
    {B38400, 38400}, {B57600, 57600}, {B115200, 115200},
};

// A flag that means nothing to a terminal marks the descriptor that this object holds itself, and
// with it the copies that a child process has of it between fork and exec.
constexpr int ours = O_NOATIME;

// Whether anyone else has the device open, as far as this user may see.
bool isHeld(const QByteArray &device)
{
    glob_t open;
    glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, nullptr, &open);
    bool held = false;
    for (size_t i = 0; i < open.gl_pathc && !held; ++i) {
        const QByteArray descriptor = open.gl_pathv[i];
        char target[64] = "";
        if (readlink(descriptor, target, sizeof target - 1) < 0 || device != target)
            continue;
        const QByteArray info = readWhole(QString(descriptor).replace("/fd/", "/fdinfo/"));
        const int at = info.indexOf("flags:\t");
        held = at >= 0 && !(info.mid(at + 7).split('\n')[0].toInt(nullptr, 8) & ours);
    }
    globfree(&open);
    return held;
}

} // namespace

const char *portName(Port port)
{
    return traits[int(port)].name;
}

qint64 monotonicNs()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

PtyPort::Pty PtyPort::openPty()
{
    // Close-on-exec from the start: another thread may just start a program.
    constexpr int flags = O_RDWR | O_NOCTTY | O_CLOEXEC;
    Pty pty;
    char path[64];
    if ((pty.master = posix_openpt(flags | O_NONBLOCK)) < 0 || unlockpt(pty.master) != 0
        || ptsname_r(pty.master, path, sizeof path) != 0
        || (pty.slave = ioctl(pty.master, TIOCGPTPEER, flags)) < 0) {
        const int error = errno;
        ::close(pty.master);
        const QString remedy = error == EMFILE
            ? "start fewer panels or raise the limit of open files (ulimit -Hn)"
            : "close some terminals or raise /proc/sys/kernel/pty/max";
        throw BenchError(
            QString("No pseudo terminal to be had (%1): %2").arg(strerror(error), remedy));
    }
    // Raw from the start: a cooked slave would echo what arrives before its owner has set it up.
    termios raw;
    tcgetattr(pty.slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(pty.slave, TCSANOW, &raw);
    pty.path = path;
    return pty;
}

PtyPort::PtyPort(Port id)
    : id_(id)
    , outside_(openPty()) // its slave stays open here: a station that ends is no hang-up
    , outsideWatch_(watch_->add(outside_.path, this))
    , pace_(new QTimer(this))
{
    auto *outside = new QSocketNotifier(outside_.master, QSocketNotifier::Read, this);
    connect(outside, &QSocketNotifier::activated, this, &PtyPort::readOutside);
    fcntl(outside_.slave, F_SETFL, ours);
    pace_->setInterval(1);
    pace_->setTimerType(Qt::PreciseTimer);
    connect(pace_, &QTimer::timeout, this, &PtyPort::pump);
    setPlugged(true);
}

PtyPort::~PtyPort()
{
    cut();
    setPlugged(false);
    watch_->remove(this);
    for (int fd : {outside_.master, outside_.slave})
        ::close(fd);
}

void PtyPort::setPlugged(bool plugged)
{
    if (QThread::currentThread() != thread()) {
        std::exception_ptr error; // which an event loop does not carry
        const auto plug = [&] {
            try {
                setPlugged(plugged);
            } catch (...) {
                error = std::current_exception();
            }
        };
        QMetaObject::invokeMethod(this, plug, Qt::BlockingQueuedConnection);
        if (error)
            std::rethrow_exception(error);
        return;
    }
    if (plugged == (panel_.master >= 0))
        return;
    QMutexLocker lock(&mutex_);
    if (!plugged) {
        delete fromPanel_;
        fromPanel_ = nullptr;
        line_.clear();
        ::close(panel_.master);
        panel_ = Pty();
        return;
    }
    panel_ = openPty();
    ::close(panel_.slave); // the master then hangs up whenever nobody on the panel has it open
    unread_ = false;
    watch_->add(panel_.path, this);
    fromPanel_ = new QSocketNotifier(panel_.master, QSocketNotifier::Read, this);
    connect(fromPanel_, &QSocketNotifier::activated, this, &PtyPort::readPanel);
}

QString PtyPort::panelPath() const
{
    QMutexLocker lock(&mutex_);
    return panel_.path;
}

int PtyPort::lineSpeed() const
{
    QMutexLocker lock(&mutex_);
    termios settings;
    if (tcgetattr(panel_.master, &settings) != 0)
        return 0;
    for (const SpeedCode &speed : speeds) {
        if (speed.code == cfgetospeed(&settings))
            return speed.baud;
    }
    return 0;
}

bool PtyPort::isOpenOnPanel() const
{
    QMutexLocker lock(&mutex_);
    pollfd master{panel_.master, 0, 0};
    return panel_.master >= 0 && ::poll(&master, 1, 0) == 0;
}

bool PtyPort::isDelivered()
{
    bool delivered = false;
    const auto look = [&] {
        pollfd outside{outside_.master, POLLIN, 0};
        delivered = line_.isEmpty() && ::poll(&outside, 1, 0) == 0;
    };
    QMetaObject::invokeMethod(this, look, Qt::BlockingQueuedConnection);
    return delivered;
}

void PtyPort::send(const QByteArray &bytes)
{
    QMetaObject::invokeMethod(this, [this, bytes] { queue(bytes); });
}

void PtyPort::join(const QVector<PtyPort *> &line)
{
    for (PtyPort *port : line)
        port->cut();
    for (PtyPort *from : line) {
        for (PtyPort *to : line) {
            if (from == to)
                continue;
            from->others_ << to;
            connect(from, &PtyPort::fromPanel, to, &PtyPort::hear);
            connect(from, &PtyPort::fromOutside, to, &PtyPort::queue);
        }
    }
}

void PtyPort::cut()
{
    for (PtyPort *other : qAsConst(others_)) {
        disconnect(this, nullptr, other, nullptr);
        disconnect(other, nullptr, this, nullptr);
        other->others_.removeOne(this);
    }
    others_.clear();
}

void PtyPort::readPanel()
{
    watchDevices();
    char bytes[4096];
    const ssize_t n = ::read(panel_.master, bytes, sizeof bytes);
    if (n <= 0) {
        fromPanel_->setEnabled(errno != EIO); // hung up; watchDevices() hears of the next opening
        return;
    }
    const QByteArray data(bytes, int(n));
    toOutside(data);
    emit fromPanel(data, monotonicNs());
}

void PtyPort::toOutside(const QByteArray &bytes)
{
    watchDevices();
    if (attached_
        && ::write(outside_.master, bytes.constData(), size_t(bytes.size())) != bytes.size())
        qWarning("%s: the program outside does not read; bytes lost", portName(id_));
}

// Another panel on the same line speaks.
void PtyPort::hear(const QByteArray &bytes)
{
    toOutside(bytes);
    queue(bytes);
}

void PtyPort::readOutside()
{
    char bytes[4096];
    const ssize_t n = ::read(outside_.master, bytes, sizeof bytes);
    if (n <= 0)
        return;
    const QByteArray data(bytes, int(n));
    queue(data);
    emit fromOutside(data);
}

void PtyPort::watchDevices()
{
    const DeviceWatch::Uses uses = watch_->take(this);
    bool left = false, closed = false, reopened = false;
    for (const auto &[device, close] : uses) {
        if (device == outsideWatch_) {
            attached_ = true;
            left = left || close;
        } else {
            reopened = reopened || (closed && !close);
            closed = closed || close;
        }
    }
    // What the panel says while no program is attached is not kept for the next one, and a program
    // that was killed does not keep others out, as it would with its exclusive lock.
    if (left) {
        ioctl(outside_.slave, TIOCNXCL);
        attached_ = isHeld(outside_.path.toLatin1());
    }
    if (reopened || (closed && !isOpenOnPanel()))
        emptyReceiver();
    if (!uses.isEmpty() && fromPanel_)
        fromPanel_->setEnabled(true);
}

// The last close of a serial device empties its receive buffer; that of a pty does not.
void PtyPort::emptyReceiver()
{
    if (!unread_) // which also keeps this from hearing itself again and again
        return;
    unread_ = false;
    const int slave = ::open(QFile::encodeName(panel_.path), O_RDWR | O_NOCTTY | O_CLOEXEC);
    tcflush(slave, TCIFLUSH);
    ::close(slave);
}

qint64 PtyPort::byteTime() const
{
    const int baud = lineSpeed();
    return baud ? qint64(1000000000) * traits[int(id_)].bitsPerByte / baud : 0;
}

void PtyPort::queue(const QByteArray &bytes)
{
    if (line_.isEmpty())
        arrived_ = qMax(arrived_, monotonicNs());
    line_ += bytes;
    pump();
}

void PtyPort::pump()
{
    watchDevices();
    const qint64 now = monotonicNs(), step = byteTime();
    int n = 0;
    for (qint64 at = arrived_; n < line_.size() && at + step <= now; ++n)
        at += step;
    if (n > 0 && n >= qMin(line_.size(), fifoSize)) {
        arrived_ += n * step;
        const QByteArray bytes = line_.left(n);
        line_.remove(0, n);
        // What does not fit any more is lost, as in a UART whose reader is late.
        if (isOpenOnPanel() && ::write(panel_.master, bytes.constData(), size_t(n)) > 0) {
            unread_ = true;
            emit intoPanel(bytes, now);
        }
    }
    if (line_.isEmpty())
        pace_->stop();
    else if (!pace_->isActive())
        pace_->start();
}
