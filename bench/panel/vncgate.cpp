#include "panel/vncgate.h"
#include "panel/bencherror.h"

#include <QLocalSocket>
#include <QTcpSocket>

VncGate::VncGate(quint16 port, const QString &socket)
    : server_(this)
    , socket_(socket)
{
    if (!server_.listen(QHostAddress::LocalHost, port))
        throw BenchError(
            QString("VNC port %1 of 127.0.0.1 cannot be used (%2): end the program that "
                    "holds it or choose another with --vnc-port")
                .arg(port)
                .arg(server_.errorString()));
    port_ = server_.serverPort();
    connect(&server_, &QTcpServer::newConnection, this, &VncGate::accept);
}

void VncGate::accept()
{
    QTcpSocket *viewer = server_.nextPendingConnection();
    auto *panel = new QLocalSocket(viewer);
    connect(viewer, &QTcpSocket::readyRead, panel, [=] { panel->write(viewer->readAll()); });
    connect(panel, &QLocalSocket::readyRead, viewer, [=] { viewer->write(panel->readAll()); });
    connect(panel, &QLocalSocket::disconnected, viewer, &QTcpSocket::disconnectFromHost);
    connect(panel, &QLocalSocket::errorOccurred, viewer, &QTcpSocket::abort);
    connect(viewer, &QTcpSocket::disconnected, viewer, &QObject::deleteLater);
    panel->connectToServer(socket_);
}
