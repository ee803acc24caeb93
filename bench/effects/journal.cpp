#include "effects/journal.h"
#include "effects/wording.h"

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
    case Operation::Exit:
        put(operation, QString("exit %1").arg(operation.args.value(0).toInt() & 0xff)).over = true;
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
