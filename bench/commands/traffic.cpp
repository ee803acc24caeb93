#include "commands/traffic.h"
#include "station/codec.h"
#include "station/protocol.h"

namespace {
// A message without a line end is over when the line has been silent for so long.
constexpr int quietMs = 50;
} // namespace

Traffic::Traffic(PtyPort *port, const Sinks &sinks)
    : name_(portName(port->id()))
    , link_(port->id() == Port::ttyO1 || port->id() == Port::ttyO3)
    , sinks_(sinks)
{
    clock_.start();
    quiet_.setSingleShot(true);
    quiet_.setInterval(quietMs);
    connect(&quiet_, &QTimer::timeout, this, [this] {
        finish(in_);
        finish(out_);
    });
    connect(port, &PtyPort::intoPanel, this, [this](const QByteArray &bytes) { add(in_, bytes); });
    connect(port, &PtyPort::fromPanel, this, [this](const QByteArray &bytes) { add(out_, bytes); });
}

void Traffic::add(Message &message, const QByteArray &bytes)
{
    finish(&message == &in_ ? out_ : in_); // the other side's turn is over
    for (char byte : bytes) {
        message.bytes += byte;
        if (byte == '\n')
            finish(message);
    }
    quiet_.start();
}

void Traffic::finish(Message &message)
{
    if (message.bytes.isEmpty())
        return;
    const QString means = meaning(message);
    const auto write = [&](FILE *sink, const char *form) {
        if (!sink)
            return;
        fprintf(sink, form, double(clock_.elapsed()) / 1000, name_, message.arrow,
                qPrintable(printable(message.bytes)), qPrintable(means));
        fflush(sink);
    };
    write(sinks_.screen, "%9.3f  %-7s %s %-34s %s\n");
    write(sinks_.record, "%.3f\t%s\t%s\t%s\t%s\n");
    message.bytes.clear();
}

QString Traffic::meaning(const Message &message)
{
    if (!link_ || (&message == &out_ && code_.isEmpty()))
        return {};
    if (&message == &out_)
        return meaningOf(decode(message.bytes).payload, code_);
    // Of the long requests the table knows the first characters; the number may be in front.
    code_.clear();
    for (int from : {3, 0}) {
        for (int length : {4, 2}) {
            const Command *command = findCommand(message.bytes.mid(from, length));
            if (command && code_.isEmpty()) {
                code_ = command->code;
                return command->meaning;
            }
        }
    }
    return {};
}
