#pragma once

#include <QCoreApplication>
#include <QProcess>

// Ends with the thread that starts it, from its first moment on: bubblewrap, which sees to that as
// well, is not there yet when it begins. In a session of its own: Ctrl-C at the terminal is for the
// bench.
class BoundProcess : public QProcess {
protected:
    void setupChildProcess() override;

private:
    const qint64 starter_ = QCoreApplication::applicationPid();
};
