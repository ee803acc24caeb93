#include "panel/ptyport.h"
#include "panel/bencherror.h"

#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <time.h>
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

// How many descriptors of a process are open on a file.
int countOpen(qint64 pid, const QString &path)
{
    int count = 0;
    const QDir fds(QString("/proc/%1/fd").arg(pid));
    for (const QString &fd : fds.entryList(QDir::Files | QDir::System)) {
        char target[64] = "";
        count += readlink(QFile::encodeName(fds.filePath(fd)), target, sizeof target - 1) > 0
            && path == target;
    }
    return count;
}

} // namespace

const char *portName(Port port)
{
    return traits[int(port)].name;
}

qint64 monotonicNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

PtyPort::Pty PtyPort::openPty()
{
    Pty pty;
    char path[64];
    if (openpty(&pty.master, &pty.slave, path, nullptr, nullptr) != 0)
        throw BenchError(QString("No pseudo terminal to be had (%1): close some terminals or raise "
                                 "/proc/sys/kernel/pty/max")
                             .arg(strerror(errno)));
    // Raw from the start: a cooked slave would echo what arrives before its owner has set it up.
    termios raw;
    tcgetattr(pty.slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(pty.slave, TCSANOW, &raw);
    for (int fd : {pty.master, pty.slave})
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(pty.master, F_SETFL, O_NONBLOCK);
    pty.path = path;
    return pty;
}

PtyPort::PtyPort(Port id)
    : id_(id)
    , panel_(openPty())
    , outside_(openPty())
    , watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    , pace_(new QTimer(this))
{
    // Both slaves stay open here, so that a restart of the agent or of a station is no hang-up.
    watchPanel();
    auto *outside = new QSocketNotifier(outside_.master, QSocketNotifier::Read, this);
    connect(outside, &QSocketNotifier::activated, this, &PtyPort::readOutside);
    outsideWatch_ = inotify_add_watch(watch_, QFile::encodeName(outside_.path), IN_OPEN | IN_CLOSE);
    auto *uses = new QSocketNotifier(watch_, QSocketNotifier::Read, this);
    connect(uses, &QSocketNotifier::activated, this, &PtyPort::watchDevices);
    pace_->setInterval(1);
    pace_->setTimerType(Qt::PreciseTimer);
    connect(pace_, &QTimer::timeout, this, &PtyPort::pump);
}

PtyPort::~PtyPort()
{
    cut();
    for (int fd : {panel_.master, panel_.slave, outside_.master, outside_.slave, watch_}) {
        if (fd >= 0)
            ::close(fd);
    }
}

void PtyPort::watchPanel()
{
    inotify_add_watch(watch_, QFile::encodeName(panel_.path), IN_OPEN | IN_CLOSE);
    fromPanel_ = new QSocketNotifier(panel_.master, QSocketNotifier::Read, this);
    connect(fromPanel_, &QSocketNotifier::activated, this, &PtyPort::readPanel);
}

void PtyPort::setPlugged(bool plugged)
{
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [=] { setPlugged(plugged); }, Qt::BlockingQueuedConnection);
        return;
    }
    if (plugged == (panel_.master >= 0))
        return;
    QMutexLocker lock(&mutex_);
    if (plugged) {
        panel_ = openPty();
        watchPanel();
        return;
    }
    delete fromPanel_;
    for (int fd : {panel_.master, panel_.slave})
        ::close(fd);
    panel_ = Pty();
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
    if (tcgetattr(panel_.slave, &settings) != 0)
        return 0;
    for (const SpeedCode &speed : speeds) {
        if (speed.code == cfgetospeed(&settings))
            return speed.baud;
    }
    return 0;
}

bool PtyPort::isOpenOnPanel() const
{
    const qint64 agent = agent_;
    const QString path = panelPath();
    if (!agent || path.isEmpty())
        return false;
    return countOpen(agent, path) > 0;
}

void PtyPort::send(const QByteArray &bytes)
{
    QMetaObject::invokeMethod(this, [this, bytes] { queue(bytes); });
}

void PtyPort::cable(PtyPort *a, PtyPort *b)
{
    a->cut();
    b->cut();
    a->far_ = b;
    b->far_ = a;
    for (auto [from, to] : {std::pair(a, b), std::pair(b, a)})
        from->cable_ = {connect(from, &PtyPort::fromPanel, to,
                                [to = to](const QByteArray &bytes) { to->queue(bytes); })};
}

void PtyPort::cut()
{
    for (PtyPort *end : {far_, this}) {
        if (!end)
            continue;
        for (const auto &connection : qAsConst(end->cable_))
            disconnect(connection);
        end->cable_.clear();
        end->far_ = nullptr;
    }
}

void PtyPort::setPower(qint64 agent)
{
    agent_ = agent;
    QMutexLocker lock(&mutex_);
    // Nothing of the last power-up is left on the line, nor the lock of a program that was killed.
    tcflush(panel_.slave, TCIOFLUSH);
    ioctl(panel_.slave, TIOCNXCL);
}

void PtyPort::readPanel()
{
    watchDevices();
    char bytes[4096];
    const ssize_t n = ::read(panel_.master, bytes, sizeof bytes);
    if (n <= 0)
        return;
    const QByteArray data(bytes, int(n));
    const qint64 now = monotonicNs();
    if (attached_ && ::write(outside_.master, bytes, size_t(n)) != n)
        qWarning("%s: the program outside does not read; bytes lost", portName(id_));
    emit fromPanel(data, now);
}

void PtyPort::readOutside()
{
    char bytes[4096];
    const ssize_t n = ::read(outside_.master, bytes, sizeof bytes);
    if (n > 0)
        queue(QByteArray(bytes, int(n)));
}

// One inotify for both devices: a machine allows few of them (128 as a rule), and a bus of panels
// has many ports.
void PtyPort::watchDevices()
{
    alignas(inotify_event) char buffer[4096];
    const ssize_t n = ::read(watch_, buffer, sizeof buffer);
    QVector<quint32> outside, panel;
    for (ssize_t at = 0; at < n;) {
        const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
        at += ssize_t(sizeof *event + event->len);
        (event->wd == outsideWatch_ ? outside : panel) << event->mask;
    }
    usersChanged(outside);
    holdersChanged(panel);
}

// What the panel says while no program is attached is not kept for the next one, and a program that
// was killed does not keep others out, as it would with its exclusive lock.
void PtyPort::usersChanged(const QVector<quint32> &events)
{
    for (quint32 event : events) {
        attached_ = true;
        if (!(event & IN_CLOSE))
            continue;
        ioctl(outside_.slave, TIOCNXCL);
        // Events of the same kind may come as one, so that counting them would not do.
        int holders = -1; // this object itself
        for (const QString &pid : QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs))
            holders += countOpen(pid.toLongLong(), outside_.path);
        attached_ = holders > 0;
    }
}

// The last close of a serial device empties its receive buffer. This object keeps the panel's slave
// open, so it has to do that itself: a moment later, but before anything that comes after the next
// opening.
void PtyPort::holdersChanged(const QVector<quint32> &events)
{
    if (events.isEmpty())
        return;
    bool none = false;
    for (quint32 event : events) {
        holders_ += event & IN_OPEN ? 1 : event & IN_CLOSE ? -1 : 0;
        none = none || holders_ <= 0;
    }
    QMutexLocker lock(&mutex_);
    if (none && panel_.slave >= 0)
        tcflush(panel_.slave, TCIFLUSH);
    // Events of the same kind may come as one, so the count has to be set right, and a moment
    // later: an opening is heard before its descriptor is there.
    QTimer::singleShot(1, this, [this] {
        watchDevices();
        holders_ = countOpen(agent_, panelPath());
    });
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
        if (now - openAt_ > 10000000) {
            open_ = isOpenOnPanel();
            openAt_ = now;
        }
        const QByteArray bytes = line_.left(n);
        line_.remove(0, n);
        // What does not fit any more is lost, as in a UART whose reader is late.
        if (open_ && ::write(panel_.master, bytes.constData(), size_t(n)) > 0)
            emit intoPanel(bytes, now);
    }
    if (line_.isEmpty())
        pace_->stop();
    else if (!pace_->isActive())
        pace_->start();
}
