#pragma once

#include "panel/files.h"

#include <QString>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <unistd.h>

// Figures of a process of this machine, and of lists of figures.

inline double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    const int n = values.size();
    return n ? (values[(n - 1) / 2] + values[n / 2]) / 2 : std::nan("");
}

// Of all threads of a process, in nanoseconds.
inline double processorTime(qint64 pid)
{
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(pid_t(pid), &clock) != 0 || clock_gettime(clock, &used) != 0)
        return std::nan("");
    return double(used.tv_sec) * 1e9 + double(used.tv_nsec);
}

inline double residentMiB(qint64 pid)
{
    const QByteArray pages = readWhole(QString("/proc/%1/statm").arg(pid)).split(' ').value(1);
    return pages.toDouble() * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}
