#include "panel/panelclock.h"
#include "panel/files.h"

#include <QDateTime>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <cmath>

namespace {
// Sign, nine digits and milliseconds and a line feed: every value has the same length, so that a
// change is one write in place and libfaketime never meets half a file. `date` and `hwclock` of the
// panel write the same layout.
constexpr char layout[] = "%+014.3f\n";
// Often enough that the attribute is never older than the one second the agent tolerates.
constexpr int refreshMs = 25;
} // namespace

PanelClock::PanelClock(const QString &folder, const QString &attribute)
    : folder_(folder)
    , attribute_(attribute)
{
    for (const char *name : {"system", "rtc", "fault"}) {
        if (!QFile::exists(folder_ + '/' + name))
            write(name, 0);
    }
    auto *timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &PanelClock::refresh);
    timer->start(refreshMs);
    refresh();
}

double PanelClock::read(const char *name) const
{
    return readWhole(folder_ + '/' + name).trimmed().toDouble();
}

void PanelClock::write(const char *name, double seconds) const
{
    writeInPlace(folder_ + '/' + name, QString::asprintf(layout, seconds).toLatin1());
}

void PanelClock::setRtcFault(double seconds)
{
    write("fault", seconds);
    // At once: a busy machine may be late with the next refresh, and a request early.
    const bool here = QThread::currentThread() == thread();
    QMetaObject::invokeMethod(
        this, [this] { refresh(); }, here ? Qt::DirectConnection : Qt::BlockingQueuedConnection);
}

void PanelClock::powerOn()
{
    write("system", read("rtc") + read("fault"));
}

void PanelClock::refresh()
{
    const double now = double(QDateTime::currentMSecsSinceEpoch()) / 1000;
    const auto seconds = qint64(std::floor(now + read("rtc") + read("fault")));
    if (seconds == shown_)
        return;
    shown_ = seconds;
    writeInPlace(attribute_, QByteArray::number(seconds) + '\n');
}
