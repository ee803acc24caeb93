#pragma once

#include "panel/virtualpanel.h"

#include <QMap>
#include <QProcess>

// What a virtual panel's power switches: the agent and all that it starts, in a bubblewrap sandbox
// whose "/" is `folder`/root. All else of a panel (ports, files, clock, screen, touch) lies outside
// and needs nothing of this but start() and stop(). Use from one thread, which must outlive it.
class Sandbox : public QObject {
    Q_OBJECT

public:
    Sandbox(const PanelOptions &options, const QString &folder);

    // Returns as soon as the agent's process exists. Throws BenchError, with the remedy, when a
    // part is missing on this machine or the sandbox does not come up.
    void start(const QStringList &agentArgs);
    // Kills everything inside at once.
    void stop();
    bool isRunning();
    // The agent's exit status, -1 when it still runs after `ms`; it stays until the next start.
    int waitForEnd(int ms);
    // As this machine numbers it, 0 when there is none.
    qint64 agentPid() const;
    // What came into agent.log or agent.err since the last start.
    QByteArray printed(const QString &file) const;

signals:
    void ended();

private:
    void awaitBoot();

    const PanelOptions options_;
    const QString folder_;
    QProcess process_;
    int status_ = -1;
    QMap<QString, qint64> begin_; // where this start's part of the logs begins
};
