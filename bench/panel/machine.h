#pragma once

#include "panel/bencherror.h"
#include "panel/ptyport.h"

#include <QObject>
#include <QStringList>

// What a virtual panel's power switches: the sandbox, or a whole ARM machine. Ports, files, screen
// and touch lie outside, in VirtualPanel. Use from one thread, which must outlive it. What a
// machine cannot offer throws a BenchError that names it.
class Machine : public QObject {
    Q_OBJECT

public:
    // Returns as soon as the agent's process exists, or throws.
    virtual void start(const QStringList &agentArgs) = 0;
    // As a mains switch.
    virtual void stop() = 0;
    virtual bool isRunning() = 0;
    // The agent's exit status, -1 when it still runs after `ms`; it stays until the next start.
    virtual int waitForEnd(int ms) = 0;
    // As this machine numbers it, 0 when there is none.
    virtual qint64 agentPid() const = 0;
    // What came into agent.log or agent.err since the last start.
    virtual QByteArray printed(const QString &file) const = 0;

    // Whether the ports' devices on this machine stay the same over power cycles.
    virtual bool keepsPorts() const
    {
        return false;
    }
    virtual bool isReady(PtyPort *port)
    {
        return port->isOpenOnPanel();
    }
    // Told after the port has got its new device, or none. False if there is nothing to be done but
    // to name it.
    virtual bool setPlugged(Port, const QString &)
    {
        return false;
    }
    // Takes a device away, or puts it back; false if it is a file of the panel's folder.
    virtual bool setPresent(const QString &, bool)
    {
        return false;
    }

signals:
    void ended();
};
