#include "panel/inputevents.h"
#include "panel/bencherror.h"
#include "panel/ptyport.h"

#include <QFile>
#include <QSocketNotifier>
#include <QtEndian>

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

namespace {
// 8 bytes of time, type, code, value: the panel's own width, whatever this machine's is.
constexpr int eventSize = 16;
constexpr int levelCode = 3; // the driver's own: loudness, set before the tone
} // namespace

InputEvents::InputEvents(const QString &path)
    // Read-write, so that a FIFO without writers is silent rather than at its end.
    : fd_(::open(QFile::encodeName(path), O_RDWR | O_NONBLOCK | O_CLOEXEC))
{
    if (fd_ < 0)
        throw BenchError(QString("Cannot open the buzzer's FIFO %1").arg(path));
    auto *notifier = new QSocketNotifier(fd_, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &InputEvents::readFifo);
}

InputEvents::~InputEvents()
{
    ::close(fd_);
}

QVector<InputEvent> InputEvents::all() const
{
    QMutexLocker lock(&mutex_);
    return events_;
}

void InputEvents::clear()
{
    QMutexLocker lock(&mutex_);
    events_.clear();
}

QVector<int> InputEvents::tones(qint64 from, qint64 to) const
{
    int level = 0, hertz = 0;
    QVector<int> tones{0};
    for (const InputEvent &event : all()) {
        if (event.ns > to)
            break;
        if (event.type == EV_SND && event.code == levelCode)
            level = event.value;
        if (event.type == EV_SND && event.code == SND_TONE)
            hertz = event.value;
        if (event.ns <= from)
            tones.clear();
        tones << (level > 0 ? hertz : 0);
    }
    return tones;
}

void InputEvents::readFifo()
{
    char bytes[4096];
    const ssize_t n = ::read(fd_, bytes, sizeof bytes);
    if (n <= 0)
        return;
    partial_.append(bytes, int(n));
    const qint64 now = monotonicNs();
    while (partial_.size() >= eventSize) {
        const char *raw = partial_.constData();
        const InputEvent event{now, qFromLittleEndian<quint16>(raw + 8),
                               qFromLittleEndian<quint16>(raw + 10),
                               qFromLittleEndian<qint32>(raw + 12)};
        partial_.remove(0, eventSize);
        QMutexLocker lock(&mutex_);
        events_.append(event);
    }
}
