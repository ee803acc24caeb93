#pragma once

#include <QObject>
#include <QTcpServer>

// A TCP port on 127.0.0.1 for VNC viewers. The panel has a network of its own, because the
// toolkit's VNC server listens on every address without a password; this gate is the only way in,
// and only from this machine. Lives in the panel's I/O thread.
class VncGate : public QObject {
    Q_OBJECT

public:
    // Listens on `port` (0: any free one) for the panel's VNC socket. Throws BenchError when the
    // port is busy.
    VncGate(quint16 port, const QString &socket);

    quint16 port() const
    {
        return port_;
    }

private:
    void accept();

    QTcpServer server_;
    const QString socket_;
    quint16 port_ = 0;
};
