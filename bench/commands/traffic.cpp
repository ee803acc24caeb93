#include "commands/traffic.h"

#include "commands/codec.h"
#include "commands/commands.h"

Traffic::Traffic(VirtualPanel &panel, bool screen, const QString &record)
{
    QFile file(record);
    if (!record.isEmpty() && !file.open(QIODevice::WriteOnly))
        throw BenchError(QString("cannot write %1: %2").arg(record, file.errorString()));
    QStringList words = programOf({"traffic"});
    words += screen ? QStringList{"--screen"} : QStringList();
    words += record.isEmpty() ? QStringList() : QStringList{"--record=" + record};
    program_.setProcessChannelMode(QProcess::ForwardedChannels);
    program_.start(words.takeFirst(), words);
    if (!program_.waitForStarted())
        throw BenchError("/usr/bin/python3 cannot be started: " + program_.errorString());
    // A little longer than the silence that ends a message.
    quiet_.setInterval(60);
    quiet_.setSingleShot(true);
    connect(&quiet_, &QTimer::timeout, this, [this] { tell("quiet"); });
    connect(&panel, &VirtualPanel::powered, this, [this, &panel](bool on) {
        tell(on ? "on " + printable(panel.readFile(VirtualPanel::levelFile).trimmed()) : "off");
    });
    const auto teller = [&](Port port, const char *arrow) {
        return [=, &panel](const QByteArray &bytes, qint64 ns) {
            const int number =
                panel.readFile("/usr/local/ict/HMI_STATION_NUM.txt").toInt(nullptr, 16);
            const QString head = QString("%1 %2 %3 ").arg(portName(port), arrow).arg(number);
            tell(head + printable(bytes), ns);
            quiet_.start();
        };
    };
    for (int i = 0; i < portCount; ++i) {
        connect(panel.port(Port(i)), &PtyPort::intoPanel, this, teller(Port(i), "->"));
        connect(panel.port(Port(i)), &PtyPort::fromPanel, this, teller(Port(i), "<-"));
    }
}

Traffic::~Traffic()
{
    QCoreApplication::sendPostedEvents(this); // what the ports have told meanwhile
    program_.closeWriteChannel();
    program_.waitForFinished(-1);
}

void Traffic::tell(const QString &event, qint64 ns)
{
    program_.write(QString("%1 %2\n").arg((ns - start_) / 1000000).arg(event).toUtf8());
}
