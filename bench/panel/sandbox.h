#pragma once

#include "panel/machine.h"
#include "panel/virtualpanel.h"

#include <QCoreApplication>
#include <QMap>
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

// The agent and all that it starts, in a bubblewrap sandbox whose "/" is `folder`/root.
class Sandbox : public Machine {
    Q_OBJECT

public:
    Sandbox(const PanelOptions &options, const QString &folder);

    // Throws BenchError, with the remedy, when a part is missing on this machine.
    void start(const QStringList &agentArgs) override;
    void stop() override;
    bool isRunning() override;
    int waitForEnd(int ms) override;
    qint64 agentPid() const override;
    QByteArray printed(const QString &file) const override;

private:
    void awaitBoot();

    const PanelOptions options_;
    const QString folder_;
    BoundProcess process_;
    int status_ = -1;
    QMap<QString, qint64> begin_; // where this start's part of the logs begins
};
