#include "commands/commandline.h"
#include "commands/commands.h"
#include "panel/bencherror.h"
#include "panel/interrupt.h"
#include "station/codec.h"
#include "station/console.h"
#include "station/link.h"
#include "station/protocol.h"

static CommandLine commandLine(const QStringList &args)
{
    return {
        args,
        "Sends one request to a panel and decodes the reply.\nCODE is a command code, or 8D and 8E "
        "(clock; ARGUMENT: seconds to be off), 0601 to 0603 (ARGUMENT: the ID),\n"
        "9510 (ARGUMENT: RRGGBB), KLV- (forced change; ARGUMENT: ict, t1, bi, t2 or hmi).\n"
        "Exit status 0 if a good answer came, 1 if none, a damaged one or a failure did.\n"
        "Example: bench send --port /dev/ttyUSB0 8000",
        {{"port", "Serial device or pty of the PC link.", "path"},
         {"station", "Station number, decimal (default 0: any).", "number", "0"},
         {"bi", "Line settings of level BI (7E1 instead of 8E1 with RTS/CTS)."},
         {"model", "Model for the forced change, for example KLV-100.", "model"},
         {"timeout", "Milliseconds to wait for the answer.", "ms", "15000"}},
        {{"CODE", "What to ask."}, {"ARGUMENT", "Its data.", "[ARGUMENT]"}}};
}

int runSend(const QStringList &args)
{
    static const char *const kinds[] = {"none",          "frame", "identity",
                                        "battery value", "text",  "damaged"};
    const CommandLine parser = commandLine(args);
    const QStringList words = parser.positionalArguments();
    if (words.isEmpty() || !parser.isSet("port"))
        throw BenchError("which port and what code? Example: bench send --port /dev/ttyUSB0 8000");
    const QByteArray code = words[0].toUpper().toLatin1();
    if (code == "KLV-" && !parser.isSet("model"))
        throw BenchError("the forced change needs the panel's model: --model KLV-100");
    const Command *command = findCommand(code);
    if (!command)
        fprintf(stderr, "No panel knows the code %s; sent all the same\n", code.constData());
    quitOnInterrupt();
    Link link;
    const int level = parser.isSet("bi") ? Bi : Ict;
    link.open(parser.value("port"), level);
    Link::Request request;
    request.bytes =
        requestOf(code, words.value(1), parser.number("station", 0, 255), parser.value("model"));
    request.timeoutMs = parser.number("timeout", 1, 3600000);
    request.framed = command && command->framed;
    const Link::Answer answer = link.exchange(request);
    const Reply reply = decode(answer.bytes);
    say("request  " + printable(request.bytes));
    say("reply    " + printable(answer.bytes));
    say(QString("kind     %1").arg(kinds[reply.kind])
        + (reply.station >= 0 ? QString(" from station %1").arg(reply.station) : QString()));
    say("meaning  " + meaningOf(reply.payload, code));
    say(QString("time     %1 ms").arg(answer.ms, 0, 'f', 1));
    if (!answer.error.isEmpty())
        throw BenchError(answer.error);
    return reply.kind == Reply::None || reply.kind == Reply::Damaged
        || isFailure(reply, code, level);
}
