// How the journal tells what it has collected.
#include "effects/journal.h"
#include "effects/wording.h"

#include <QRegularExpression>

bool Journal::tells(const QString &text) const
{
    for (const Effect &effect : effects_) {
        if (lineOf(effect).contains(text))
            return true;
    }
    return false;
}

// An item's record: its 64 bytes read, the last character of its text written in place, synced.
QString Journal::recordText(const Effect &effect) const
{
    static const QRegularExpression flags("^/usr/local/ict/HMI_(ICT|T1|BI|T2)_TEST_Flag.txt$");
    const QRegularExpressionMatch match = flags.match(effect.file);
    if (!match.hasMatch() || effect.text != "read-write" || effect.steps.size() != 4)
        return {};
    const Step &read = effect.steps[0], &write = effect.steps[1];
    const int length = int(qstrnlen(read.bytes.constData(), uint(read.bytes.size())));
    const bool whole = read.kind == Operation::Read && read.at % 64 == 0 && read.bytes.size() == 64
        && write.kind == Operation::Write && write.bytes.size() == 1
        && write.at == read.at + length - 1 && effect.steps[2].kind == Operation::SyncAll
        && effect.steps[3].kind == Operation::Close;
    return whole ? QString("record %1 %2 %3")
                       .arg(match.captured(1))
                       .arg(read.at / 64 + 1)
                       .arg(QString(write.bytes))
                 : QString();
}

QString Journal::lineOf(const Effect &effect) const
{
    if (effect.file == "receive") {
        const QByteArray &bytes = effect.steps[0].bytes;
        return effect.text + ' ' + (bytes.isEmpty() ? QString() : quotedBytes(bytes))
            + (!effect.silence       ? ""
                   : bytes.isEmpty() ? "nothing"
                                     : ", then nothing");
    }
    if (effect.child) {
        const bool run = effect.awaited && (effect.direct || effect.text.contains(": E"));
        const char *const verb = !run ? "start " : effect.text.startsWith("shell ") ? "" : "run ";
        return verb + effect.text;
    }
    if (effect.file.isEmpty())
        return effect.text;
    const QString record = recordText(effect);
    if (!record.isEmpty())
        return record;
    QStringList steps;
    qint64 place = 0;
    for (int i = 0; i < effect.steps.size(); ++i) {
        const Step &step = effect.steps[i];
        QByteArray bytes = step.bytes;
        const bool moves = step.kind == Operation::Read || step.kind == Operation::Write;
        // Parts that follow each other are one.
        while (moves && i + 1 < effect.steps.size() && effect.steps[i + 1].kind == step.kind
               && effect.steps[i + 1].text == step.text
               && (step.at < 0 || effect.steps[i + 1].at == step.at + bytes.size()))
            bytes += effect.steps[++i].bytes;
        QString text = step.text;
        if (moves && !text.startsWith("event"))
            text += ' '
                + (step.kind == Operation::Read ? QString::number(bytes.size())
                                                : quotedBytes(bytes));
        if (moves && step.at >= 0 && step.at != place && !effect.file.startsWith("/dev/input"))
            text += QString(" at %1").arg(step.at);
        if (moves)
            place = step.at + bytes.size();
        steps << text;
    }
    const QString line =
        "file " + shortName(effect.file) + (effect.text.isEmpty() ? "" : " " + effect.text);
    return steps.isEmpty() ? line : line + ": " + steps.join(", ");
}

QStringList Journal::linesOf(int thread) const
{
    QStringList lines;
    for (const Effect &effect : effects_) {
        if (effect.thread == thread)
            lines << lineOf(effect);
    }
    return folded(lines);
}

QStringList Journal::take()
{
    QStringList lines = linesOf(agent_);
    QVector<int> threads{agent_};
    for (const Effect &effect : effects_) {
        if (threads.contains(effect.thread))
            continue;
        threads.append(effect.thread);
        lines << "thread" << linesOf(effect.thread);
    }
    for (int fd : openedNow_)
        lines << "stays open " + open_.value(fd);
    effects_.clear();
    openedNow_.clear();
    heard_ = false;
    idleTurns_ = 0;
    return lines;
}
