#include "panel/devicewatch.h"
#include "panel/bencherror.h"
#include "panel/ptyport.h"
#include "panel/urgency.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

std::shared_ptr<DeviceWatch> DeviceWatch::shared()
{
    static QMutex mutex;
    static std::weak_ptr<DeviceWatch> one; // it ends with the last port
    const QMutexLocker lock(&mutex);
    std::shared_ptr<DeviceWatch> watch = one.lock();
    if (!watch)
        one = watch = std::make_shared<DeviceWatch>();
    return watch;
}

DeviceWatch::DeviceWatch()
    : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (fd_ < 0 || pipe2(stop_, O_CLOEXEC) != 0)
        throw BenchError(QString("No watch of devices to be had (%1): end some programs or raise "
                                 "/proc/sys/fs/inotify/max_user_instances")
                             .arg(strerror(errno)));
    thread_ = std::thread([this] {
        runBeforeAllElse(); // the ports' threads wait for this one's look
        pollfd ends[] = {{fd_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        while (::poll(ends, 2, -1) < 0 || !ends[1].revents) {
            const QMutexLocker lock(&mutex_);
            read(nullptr);
        }
    });
}

DeviceWatch::~DeviceWatch()
{
    ::close(stop_[1]);
    thread_.join();
    ::close(stop_[0]);
    ::close(fd_);
}

int DeviceWatch::add(const QString &path, PtyPort *port)
{
    const QMutexLocker lock(&mutex_);
    const int number = inotify_add_watch(fd_, QFile::encodeName(path), IN_OPEN | IN_CLOSE);
    if (number < 0)
        throw BenchError(QString("No watch of %1 to be had (%2): end some programs or raise "
                                 "fs.inotify.max_user_watches with sysctl")
                             .arg(path, strerror(errno)));
    ports_[number] = port;
    return number;
}

void DeviceWatch::remove(PtyPort *port)
{
    const QMutexLocker lock(&mutex_);
    for (int number : ports_.keys(port))
        ports_.remove(number);
    uses_.remove(port);
}

DeviceWatch::Uses DeviceWatch::take(PtyPort *port)
{
    const QMutexLocker lock(&mutex_);
    read(port);
    return uses_.take(port);
}

void DeviceWatch::read(PtyPort *asker)
{
    alignas(inotify_event) char buffer[4096];
    const ssize_t n = ::read(fd_, buffer, sizeof buffer);
    for (ssize_t at = 0; at < n;) {
        const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
        at += ssize_t(sizeof *event + event->len);
        PtyPort *port = ports_.value(event->wd);
        if (event->mask & IN_IGNORED) { // the device is no more
            ports_.remove(event->wd);
        } else if (port) {
            uses_[port] << qMakePair(event->wd, bool(event->mask & IN_CLOSE));
            if (port != asker && uses_[port].size() == 1)
                QMetaObject::invokeMethod(port, &PtyPort::watchDevices, Qt::QueuedConnection);
        }
    }
}
