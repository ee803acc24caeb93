#include "panel/vncgate.h"
#include "panel/bencherror.h"

#include <QLocalSocket>
#include <QTcpSocket>
#include <QtEndian>

#include <memory>

namespace {

constexpr int greeting = 13; // version and one byte, before the messages
constexpr quint32 longestText = 1 << 20; // of a clipboard
enum Message : char { PixelFormat, Encodings = 2, Update, Key, Pointer, Text };

// The size of the message that `heard` begins with, as far as it is known; -1 for none of ours.
qint64 messageSize(const QByteArray &heard)
{
    const char *const bytes = heard.constData();
    switch (heard[0]) {
    case PixelFormat:
        return 20;
    case Encodings:
        return heard.size() < 4 ? 4 : 4 + 4 * qFromBigEndian<quint16>(bytes + 2);
    case Update:
        return 10;
    case Key:
        return 8;
    case Pointer:
        return 6;
    case Text: {
        const quint32 size = heard.size() < 8 ? 0 : qFromBigEndian<quint32>(bytes + 4);
        return size > longestText ? -1 : 8 + qint64(size);
    }
    default:
        return -1;
    }
}

// The same order of bytes in memory, said the other way round.
QByteArray swapped(QByteArray format)
{
    char *const bytes = format.data();
    const bool panelsOwn = bytes[14] == 16 && bytes[15] == 8 && bytes[16] == 0;
    if (bytes[4] == 32 && !bytes[6] && !panelsOwn) {
        bytes[6] = 1;
        for (int shift : {14, 15, 16})
            bytes[shift] = char(24 - bytes[shift]);
    }
    return format;
}

} // namespace

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

// Moves whole messages from the front of `heard` to `passed`. False for what is no message.
bool VncGate::filter(QByteArray *heard, QByteArray *passed)
{
    while (!heard->isEmpty()) {
        const qint64 size = messageSize(*heard);
        if (size < 0 || size > heard->size())
            return size >= 0;
        const QByteArray message = heard->left(int(size));
        heard->remove(0, int(size));
        if (message[0] == Pointer)
            emit pointer({qFromBigEndian<quint16>(message.constData() + 2),
                          qFromBigEndian<quint16>(message.constData() + 4)},
                         message[1] & 1);
        else
            *passed += message[0] == PixelFormat ? swapped(message) : message;
    }
    return true;
}

void VncGate::accept()
{
    QTcpSocket *viewer = server_.nextPendingConnection();
    auto *panel = new QLocalSocket(viewer);
    const auto heard = std::make_shared<QByteArray>();
    int toGreet = greeting;
    connect(viewer, &QTcpSocket::readyRead, panel, [=]() mutable {
        QByteArray passed = viewer->read(toGreet);
        toGreet -= passed.size();
        *heard += viewer->readAll();
        const bool sound = filter(heard.get(), &passed);
        panel->write(passed);
        if (!sound)
            viewer->abort();
    });
    connect(panel, &QLocalSocket::readyRead, viewer, [=] { viewer->write(panel->readAll()); });
    connect(panel, &QLocalSocket::disconnected, viewer, &QTcpSocket::disconnectFromHost);
    connect(panel, &QLocalSocket::errorOccurred, viewer, &QTcpSocket::abort);
    connect(viewer, &QTcpSocket::disconnected, this, [this, viewer] {
        emit pointer({}, false); // a finger that goes away lets go
        viewer->deleteLater();
    });
    panel->connectToServer(socket_);
}
