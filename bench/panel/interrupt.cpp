#include "panel/interrupt.h"

#include "panel/bencherror.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
int wake[2];
volatile sig_atomic_t seen = 0;

void onSignal(int)
{
    seen = 1;
    if (::write(wake[1], "", 1) < 0)
        return; // full: already awake
}
} // namespace

void quitOnInterrupt()
{
    if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = int(SA_RESETHAND);
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
    auto *notifier = new QSocketNotifier(wake[0], QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, &QCoreApplication::quit);
}

bool interrupted()
{
    return seen;
}

void endIfInterrupted()
{
    if (interrupted())
        throw BenchError("interrupted");
}
