#pragma once

#include <QObject>
#include <QPoint>
#include <QTcpServer>

// A TCP port on 127.0.0.1 for VNC viewers. The panel has a network of its own, because the
// toolkit's VNC server listens on every address without a password; this gate is the only way in,
// and only from this machine. Lives in the panel's I/O thread.
//
// What a viewer says is passed on but for two things. Its pointer is a finger on the glass and not
// a mouse at the panel: it does not go in, the signal tells of it. And the server minds a viewer's
// order of red, green and blue only if it has to swap bytes as well: viewers that want another
// order than its own are made to ask for it with the bytes swapped, which comes to the same.
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

signals:
    // Where a viewer's pointer is, and whether its first button is held.
    void pointer(const QPoint &pixel, bool held);

private:
    void accept();
    bool filter(QByteArray *heard, QByteArray *passed);

    QTcpServer server_;
    const QString socket_;
    quint16 port_ = 0;
};
