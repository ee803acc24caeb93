#include "commands/traffic.h"

#include "fixture/virtualstand.h"
#include "station/codec.h"
#include "station/protocol.h"

#include <QJsonDocument>

#include <utility>

namespace {
// A message without a line end is over when the line has been silent for so long.
constexpr int quietMs = 50;
const char planEnd[] = "\n  ]\n}\n";
} // namespace

Traffic::Traffic(VirtualPanel &panel, FILE *screen, const QString &record)
    : panel_(panel)
    , screen_(screen)
    , record_(record)
{
    clock_.start();
    if (!record.isEmpty() && !record_.open(QIODevice::WriteOnly))
        throw BenchError(QString("cannot write %1: %2").arg(record, record_.errorString()));
    connect(&panel, &VirtualPanel::powered, this, &Traffic::powered);
    for (int i = 0; i < portCount; ++i) {
        const Port port = Port(i);
        QTimer &quiet = lines_[size_t(i)].quiet;
        quiet.setSingleShot(true);
        quiet.setInterval(quietMs);
        connect(&quiet, &QTimer::timeout, this, [this, port] { finish(port); });
        connect(panel.port(port), &PtyPort::intoPanel, this,
                [this, port](const QByteArray &bytes) { add(port, true, bytes); });
        connect(panel.port(port), &PtyPort::fromPanel, this,
                [this, port](const QByteArray &bytes) { add(port, false, bytes); });
    }
}

Traffic::~Traffic()
{
    endStep();
}

void Traffic::note(const QString &what)
{
    if (screen_) {
        fprintf(screen_, "%9.3f  -- %s\n", double(clock_.elapsed()) / 1000, qPrintable(what));
        fflush(screen_);
    }
}

void Traffic::powered(bool on)
{
    deaf_ = false;
    if (!on)
        return note("power off");
    const QString level = panel_.readFile(VirtualPanel::levelFile).trimmed();
    level_ = qMax(0, levelByName(level)); // whatever else it says is ICT
    note(QString("power on, level ") + levelName(level_));
    if (recordLevel_ < 0 && record_.isOpen()) {
        recordLevel_ = level_;
        record_.write(QString("{\n  \"level\": \"%1\",\n  \"partial\": true,\n  \"steps\": [")
                          .arg(levelName(level_))
                          .toLatin1()
                      + planEnd);
        record_.flush();
    }
}

void Traffic::add(Port port, bool in, const QByteArray &bytes)
{
    Line &line = lines_[size_t(port)];
    if (!line.messages[!in].isEmpty())
        finish(port); // the other side's turn is over
    for (char byte : bytes) {
        line.messages[in] += byte;
        if (byte == '\n')
            finish(port);
    }
    line.quiet.start();
}

void Traffic::finish(Port port)
{
    for (const bool in : {true, false}) {
        const QByteArray message = std::exchange(lines_[size_t(port)].messages[in], {});
        if (!message.isEmpty())
            write(port, in, message);
    }
}

void Traffic::write(Port port, bool in, const QByteArray &bytes)
{
    const bool link = port == linkPort(levelName(level_));
    const QString means = link ? meaning(in, bytes) : QString();
    if (screen_) {
        fprintf(screen_, "%9.3f  %-7s %s %-34s %s\n", double(clock_.elapsed()) / 1000,
                portName(port), in ? "->" : "<-", qPrintable(printable(bytes)), qPrintable(means));
        fflush(screen_);
    }
    if (link && record_.isOpen() && level_ == recordLevel_)
        record(in, bytes);
}

QString Traffic::meaning(bool in, const QByteArray &bytes)
{
    if (!in && code_.isEmpty())
        return {};
    if (!in) {
        deaf_ = deaf_ || (code_.size() == 4 && code_[0] == '0' && code_[1] < '6'); // an end check
        const Reply reply = decode(bytes);
        return reply.kind == Reply::Damaged ? QString("damaged") : meaningOf(reply.payload, code_);
    }
    const Command *command = commandOf(bytes);
    code_ = command ? command->code : QByteArray();
    const int station = panel_.readFile("/usr/local/ict/HMI_STATION_NUM.txt").toInt(nullptr, 16);
    const QString why = deaf_ ? "deaf since the end check, until the power is cycled"
                              : refusal(bytes, level_, station);
    const QString what = command ? command->meaning : QString("request");
    return why.isEmpty() ? what : what + ", refused: " + why;
}

void Traffic::record(bool in, const QByteArray &bytes)
{
    if (in) {
        endStep();
        const Command *command = commandOf(bytes);
        step_["name"] = command ? command->meaning : QString("unknown request");
        step_["raw"] = textOf(bytes);
    } else if (!step_.isEmpty()) {
        step_["bytes"] = step_["bytes"].toString() + textOf(bytes);
    }
}

// Writes the step; the file is a whole plan after each.
void Traffic::endStep()
{
    if (step_.isEmpty())
        return;
    const bool answered = step_.contains("bytes");
    step_["repeats"] = 0;
    step_["timeout"] = answered ? 15000 : 500;
    if (!answered)
        step_["silence"] = true;
    record_.seek(record_.size() - qint64(qstrlen(planEnd)));
    record_.write(separator_ + QJsonDocument(step_).toJson(QJsonDocument::Compact) + planEnd);
    record_.flush();
    separator_ = ",\n    ";
    step_ = {};
}
