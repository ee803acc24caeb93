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
    using Action = void (Journal::*)(const Operation &);
    static const QHash<int, Action> actions{
        {Operation::Open, &Journal::opened},        {Operation::Close, &Journal::closed},
        {Operation::Read, &Journal::received},      {Operation::Write, &Journal::written},
        {Operation::Control, &Journal::controlled}, {Operation::Start, &Journal::started},
        {Operation::Reap, &Journal::reaped},        {Operation::Pause, &Journal::paused},
        {Operation::SyncAll, &Journal::synced},     {Operation::SyncFile, &Journal::synced},
        {Operation::Truncate, &Journal::resized},   {Operation::Rename, &Journal::renamed},
        {Operation::Remove, &Journal::renamed},     {Operation::MakeFolder, &Journal::renamed},
        {Operation::Link, &Journal::renamed},       {Operation::Poll, &Journal::waited},
        {Operation::Exit, &Journal::ended},
    };
    if (const Action action = actions.value(operation.kind))
        (this->*action)(operation);
}

void Journal::resized(const Operation &operation)
{
    fileDid(operation, QString("cut to %1").arg(operation.at));
}

void Journal::renamed(const Operation &operation)
{
    if (isPanels(operation.path))
        tell(operation, changedName(operation));
}

void Journal::waited(const Operation &operation)
{
    if (operation.thread != agent_)
        return;
    idleTurns_ += operation.result == 0 && operation.args.value(2) != "0";
    for (Effect &effect : effects_)
        effect.over = true;
}

void Journal::ended(const Operation &operation)
{
    tell(operation, QString("exit %1").arg(operation.args.value(0).toInt() & 0xff));
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

void Journal::tell(const Operation &operation, const QString &text)
{
    put(operation, text).over = true;
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
    const QString how = openMode(operation.args.value(operation.name == "open" ? 1 : 2), port);
    if (operation.ok()) {
        open_[operation.fd] = operation.path;
        openedNow_.append(operation.fd);
    }
    if (port || !operation.ok()) {
        const QString failed = operation.ok() ? QString() : ": " + QString(operation.error);
        tell(operation,
             (port ? "open " : "file ") + shortName(operation.path) + ' ' + how + failed);
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
        tell(operation, "close what is not open");
    else if (isPort(path))
        tell(operation, "close " + path);
    else if (!path.isEmpty()) {
        fileDid(operation, "close");
        last(operation.thread)->over = true;
    }
}

void Journal::received(const Operation &operation)
{
    const bool empty = operation.result <= 0, port = isPort(operation.path);
    if (!port) {
        if (!empty)
            fileDid(operation, "read");
        return;
    }
    const bool again = silent_.remove(operation.fd);
    const bool link = operation.path == link_;
    if (empty && (!again || link))
        silent_.insert(operation.fd);
    if (link) {
        heard_ = heard_ || !empty;
        idleTurns_ = empty ? idleTurns_ : 0;
        return;
    }
    if (empty && !again)
        return;
    Effect *effect = last(operation.thread);
    if (!effect || effect->over || effect->file != "receive" || effect->fd != operation.fd) {
        effect = &put(operation, "receive " + operation.path);
        effect->file = "receive";
        effect->fd = operation.fd;
        effect->steps.append({Operation::Read, {}, -1, {}});
    }
    effect->steps[0].bytes += operation.bytes;
    effect->over = effect->silence = empty;
}

void Journal::written(const Operation &operation)
{
    if (operation.fd == -2 || operation.fd == 2)
        return;
    if (operation.fd == 1) {
        tell(operation, "print " + quotedBytes(operation.bytes));
    } else if (isPort(operation.path)) {
        tell(operation, "send " + operation.path + ' ' + quotedBytes(operation.bytes));
    } else if (operation.fd < 1) {
        tell(operation,
             QString("send descriptor %1 ").arg(operation.fd) + quotedBytes(operation.bytes));
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
        text = "stdin " + openMode(operation.args.value(2), false).remove("read-only ");
    else if (isPort(operation.path))
        text = controlText(operation);
    if (!text.isEmpty())
        tell(operation, text);
}

void Journal::started(const Operation &operation)
{
    if (operation.ok() && !operation.args.join(',').contains("CLONE_THREAD"))
        childOf(operation, int(operation.result));
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
void Journal::reaped(const Operation &operation)
{
    for (Effect &effect : effects_) {
        if (operation.result <= 0 || effect.child != operation.result)
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
        tell(operation, "sync");
}
