#include "panel/vncgate.h"
#include "panel/bencherror.h"

#include <QHash>
#include <QLocalSocket>
#include <QTcpSocket>
#include <QtEndian>

#include <memory>

namespace {

constexpr int greeting = 13; // version and one byte, before the messages
constexpr int longestText = 1 << 20; // of a clipboard
enum Message : char { PixelFormat, Encodings = 2, Update, Key, Pointer, Text };
const QHash<char, int> headSizes{{PixelFormat, 20}, {Encodings, 4}, {Update, 10},
                                 {Key, 8},          {Pointer, 6},   {Text, 8}};

// The size of the message that `heard` begins with, as far as it is known; -1 for none of ours.
int messageSize(const QByteArray &heard)
{
    const int head = headSizes.value(heard[0], -1);
    if (heard.size() < head)
        return head;
    if (heard[0] == Encodings)
        return head + 4 * qFromBigEndian<quint16>(heard.constData() + 2);
    if (heard[0] != Text)
        return head;
    const quint32 text = qFromBigEndian<quint32>(heard.constData() + 4);
    return text > longestText ? -1 : head + int(text);
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
        const int size = messageSize(*heard);
        if (size < 0 || size > heard->size())
            return size >= 0;
        const QByteArray message = heard->left(size);
        heard->remove(0, size);
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
