#include "commands/commands.h"
#include "panel/bencherror.h"
#include "station/codec.h"
#include "station/link.h"
#include "station/runner.h"

#include <QCommandLineParser>
#include <QFile>

namespace {

struct Exchange {
    QByteArray request, reply; // empty reply: there was none
};

// The exchanges of one port from a record of `bench panel --record`.
QVector<Exchange> readRecord(const QString &path, const QByteArray &port)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw BenchError(QString("cannot read %1: %2").arg(path, file.errorString()));
    QVector<Exchange> exchanges;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QList<QByteArray> columns = line.split('\t');
        if (columns.size() < 4 || columns[1] != port)
            continue;
        const QByteArray bytes = unprintable(columns[3]);
        if (columns[2] == "->")
            exchanges.append(Exchange{bytes, {}});
        else if (!exchanges.isEmpty())
            exchanges.last().reply += bytes;
    }
    if (exchanges.isEmpty())
        throw BenchError(QString("%1 holds no request on %2: was it written by `bench panel "
                                 "--record`, and at another level?")
                             .arg(path, QString(port)));
    return exchanges;
}

// What came back now.
QByteArray repeat(Link &link, const Exchange &exchange, int timeoutMs)
{
    Link::Request request;
    request.bytes = exchange.request;
    request.timeoutMs = exchange.reply.isEmpty() ? 500 : timeoutMs;
    request.silence = exchange.reply.isEmpty();
    request.framed = exchange.reply.startsWith(':') && exchange.reply.endsWith("\r\n");
    const Link::Answer answer = link.exchange(request);
    if (!answer.error.isEmpty())
        throw BenchError(answer.error);
    return answer.bytes;
}

} // namespace

int runReplay(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Sends the requests of a recorded exchange again and compares the answers byte for byte.\n"
        "Requests that carry a time, and values that were measured, differ by nature.\n"
        "Exit status 0 if all are the same. Example: bench panel --record link.txt, then\n"
        "bench replay --port /dev/ttyUSB0 link.txt");
    parser.addHelpOption();
    parser.addOptions({{"port", "Serial device or pty of the PC link.", "path"},
                       {"bi", "The record is of level BI: its link is COM1 RS-485, 7E1."},
                       {"timeout", "Milliseconds to wait for an answer.", "ms", "15000"}});
    parser.addPositionalArgument("FILE", "What `bench panel --record FILE` has written.");
    parser.process(args);
    if (parser.positionalArguments().size() != 1 || !parser.isSet("port"))
        throw BenchError("which port and which file? See bench replay --help");
    const bool burnIn = parser.isSet("bi");
    const auto exchanges =
        readRecord(parser.positionalArguments().first(), burnIn ? "ttyO3" : "ttyO1");
    Link link;
    QString error;
    if (!link.open(parser.value("port"), burnIn ? Link::Mode::Rs485 : Link::Mode::Rs232, &error))
        throw BenchError(error);
    int different = 0;
    for (const Exchange &exchange : exchanges) {
        const QByteArray reply = repeat(link, exchange, parser.value("timeout").toInt());
        const bool same = reply == exchange.reply;
        different += !same;
        say((same ? " same     " : " DIFFERS  ") + printable(exchange.request).leftJustified(32)
            + printable(reply));
        if (!same)
            say(QString("  recorded").leftJustified(42) + printable(exchange.reply));
    }
    say(QString("%1 exchanges, %2 different").arg(exchanges.size()).arg(different));
    return different != 0;
}
