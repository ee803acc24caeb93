#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

// Waits until `done` is true, running this thread's events meanwhile. False when `ms` milliseconds
// have passed without it.
inline bool waitFor(const std::function<bool()> &done, int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() >= ms)
            return false;
        QCoreApplication::processEvents();
        QThread::msleep(2);
    }
    return true;
}
