#include "effects/journal.h"
#include "effects/wording.h"

#include <QRegularExpression>

namespace {

constexpr qint64 emptyReadPauseNs = 20000000; // between two looks at a silent port

bool isPort(const QByteArray &path)
{
    return path.startsWith("/dev/tty");
}

// The panel's own; everything else is the toolkit's and the C library's.
bool isPanels(const QByteArray &path)
{
    for (const char *place : {"/usr/local/", "/dev/tty", "/dev/input/", "/dev/Ostra", "/dev/mtd",
                              "/sys/bus/", "/sys/class/", "/media/", "/mnt/", "/tmp/"}) {
        if (path.startsWith(place))
            return true;
    }
    return path.startsWith("/etc/pointercal");
}

} // namespace

void Journal::add(const Operation &operation)
{
    if (!agent_)
        agent_ = operation.process;
    if (operation.kind == Operation::Program && operation.starter)
        return ran(operation);
    if (operation.kind == Operation::Exit && tried_.contains(operation.process)) {
        for (Effect &effect : effects_) {
            if (effect.child == operation.process)
                effect.text = tried_.take(operation.process);
        }
    }
    if (operation.process != agent_)
        return;
    switch (operation.kind) {
    case Operation::Open:
        return opened(operation);
    case Operation::Close:
        return closed(operation);
    case Operation::Read:
        return received(operation);
    case Operation::Write:
        return written(operation);
    case Operation::Control:
        return controlled(operation);
    case Operation::Start:
        if (operation.ok() && !operation.args.join(',').contains("CLONE_THREAD"))
            childOf(operation, int(operation.result));
        return;
    case Operation::Reap:
        return reaped(int(operation.result));
    case Operation::Pause:
        return paused(operation);
    case Operation::SyncAll:
    case Operation::SyncFile:
        return synced(operation);
    case Operation::Truncate:
        return fileDid(operation, QString("cut to %1").arg(operation.at));
    case Operation::Rename:
    case Operation::Remove:
    case Operation::MakeFolder:
    case Operation::Link:
        if (isPanels(operation.path))
            put(operation, changedName(operation)).over = true;
        return;
    case Operation::Poll:
        if (operation.thread != agent_)
            return;
        idleTurns_ += operation.result == 0 && operation.args.value(2) != "0";
        for (Effect &effect : effects_)
            effect.over = true;
        return;
    default:
        return;
    }
}

Journal::Effect &Journal::put(const Operation &operation, const QString &text)
{
    idleTurns_ = 0;
    Effect effect;
    effect.thread = operation.thread;
    effect.text = text;
    effects_.append(effect);
    return effects_.last();
}

Journal::Effect *Journal::last(int thread)
{
    for (int i = effects_.size() - 1; i >= 0; --i) {
        if (effects_[i].thread == thread)
            return &effects_[i];
    }
    return nullptr;
}

// The line that tells of the descriptor's file, a new one after anything else.
Journal::Effect &Journal::stepsOf(const Operation &operation)
{
    Effect *const effect = last(operation.thread);
    if (effect && !effect->over && effect->fd == operation.fd && !effect->file.isEmpty())
        return *effect;
    Effect &next = put(operation, {});
    next.file = operation.path;
    next.fd = operation.fd;
    return next;
}

void Journal::fileDid(const Operation &operation, const QString &text)
{
    if (isPanels(operation.path) && !isPort(operation.path))
        stepsOf(operation).steps.append({operation.kind, text, operation.at, operation.bytes});
}

void Journal::opened(const Operation &operation)
{
    const bool port = isPort(operation.path);
    // A look for a file that is not there leaves no trace on the panel.
    if (!isPanels(operation.path) || (operation.error == "ENOENT" && !port))
        return;
    const QString how = openMode(operation.args, port);
    if (operation.ok()) {
        open_[operation.fd] = operation.path;
        openedNow_.append(operation.fd);
    }
    if (port || !operation.ok()) {
        const QString failed = operation.ok() ? QString() : ": " + QString(operation.error);
        put(operation, (port ? "open " : "file ") + shortName(operation.path) + ' ' + how + failed)
            .over = true;
        return;
    }
    Effect &effect = put(operation, how);
    effect.file = operation.path;
    effect.fd = operation.fd;
}

void Journal::closed(const Operation &operation)
{
    const QByteArray path = open_.take(operation.fd);
    openedNow_.removeAll(operation.fd);
    if (!operation.ok())
        put(operation, "close what is not open").over = true;
    else if (isPort(path))
        put(operation, "close " + path).over = true;
    else if (!path.isEmpty()) {
        fileDid(operation, "close");
        last(operation.thread)->over = true;
    }
}

void Journal::received(const Operation &operation)
{
    if (operation.path == link_ && !link_.isEmpty()) {
        silent_.remove(operation.fd);
        if (operation.result > 0) {
            heard_ = true;
            idleTurns_ = 0;
        } else if (!silent_.remove(operation.fd)) {
            silent_.insert(operation.fd);
        }
        return;
    }
    if (!isPort(operation.path)) {
        if (operation.result > 0)
            fileDid(operation, "read");
        return;
    }
    const bool again = silent_.contains(operation.fd);
    silent_.remove(operation.fd);
    Effect *effect = last(operation.thread);
    const bool goesOn =
        effect && !effect->over && effect->file == "receive" && effect->fd == operation.fd;
    if (operation.result <= 0 && !again) {
        silent_.insert(operation.fd);
        return;
    }
    if (!goesOn) {
        effect = &put(operation, "receive " + operation.path);
        effect->file = "receive";
        effect->fd = operation.fd;
        effect->steps.append({Operation::Read, {}, -1, {}});
    }
    effect->steps[0].bytes += operation.bytes;
    effect->over = effect->silence = operation.result <= 0;
}

void Journal::written(const Operation &operation)
{
    if (operation.fd == -2 || operation.fd == 2)
        return;
    if (operation.fd == 1) {
        put(operation, "print " + quotedBytes(operation.bytes)).over = true;
    } else if (isPort(operation.path)) {
        put(operation, "send " + operation.path + ' ' + quotedBytes(operation.bytes)).over = true;
    } else if (operation.fd < 1) {
        put(operation,
            QString("send descriptor %1 ").arg(operation.fd) + quotedBytes(operation.bytes))
            .over = true;
    } else if (operation.path.startsWith("/dev/input/")) {
        fileDid(operation, eventText(operation.bytes));
    } else {
        fileDid(operation, operation.ok() ? "write" : "write, refused: " + operation.error);
    }
}

void Journal::controlled(const Operation &operation)
{
    QString text;
    if (operation.fd == 0 && operation.args.value(1) == "F_SETFL")
        text = "stdin "
            + QString(operation.args.value(2))
                  .toLower()
                  .remove("o_rdonly|")
                  .remove("o_")
                  .replace('|', ' ');
    else if (isPort(operation.path))
        text = controlText(operation);
    if (!text.isEmpty())
        put(operation, text).over = true;
}

// A command has its place where the agent started it, however late it becomes a program.
Journal::Effect &Journal::childOf(const Operation &operation, int child)
{
    for (Effect &effect : effects_) {
        if (effect.child == child)
            return effect;
    }
    Effect &effect = put(operation, {});
    effect.child = child;
    return effect;
}

void Journal::ran(const Operation &operation)
{
    const QString command = commandText(operation.words);
    if (!operation.ok()) {
        tried_[operation.process] = command + ": " + operation.error;
        return;
    }
    tried_.remove(operation.process);
    Operation start = operation;
    start.thread = operation.starter;
    Effect &effect = childOf(start, operation.branch);
    effect.text = command;
    effect.direct = operation.process == operation.branch;
}

// A program whose end the agent awaits before it does anything else was waited for.
void Journal::reaped(int child)
{
    for (Effect &effect : effects_) {
        if (effect.child != child || child <= 0)
            continue;
        effect.awaited = !effect.over && last(effect.thread) == &effect;
        effect.over = true;
    }
}

// A pause that a signal cuts short is gone on with for the rest.
void Journal::paused(const Operation &operation)
{
    const bool rest = operation.at < interrupted_;
    interrupted_ = operation.error.isEmpty() ? 0 : operation.at;
    if (rest || (operation.at == emptyReadPauseNs && !silent_.isEmpty()))
        return;
    put(operation,
        operation.at % 1000000 ? QString("pause %1 us").arg(operation.at / 1000)
                               : QString("pause %1 ms").arg(operation.at / 1000000))
        .over = true;
}

int Journal::idleTurns() const
{
    for (const Effect &effect : effects_) {
        if (effect.child && effect.text.isEmpty())
            return 0; // on its way to become a program
    }
    return idleTurns_;
}

void Journal::synced(const Operation &operation)
{
    Effect *const effect = last(operation.thread);
    if (operation.kind == Operation::SyncFile)
        return fileDid(operation, "sync file");
    if (effect && !effect->over && open_.contains(effect->fd) && !effect->file.isEmpty())
        effect->steps.append({operation.kind, "sync", -1, {}});
    else
        put(operation, "sync").over = true;
}

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
