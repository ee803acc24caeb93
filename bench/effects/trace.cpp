#include "effects/trace.h"

#include <QStringList>

#include <cstring>

namespace {

const QHash<QByteArray, Operation::Kind> &kinds()
{
    static const auto all = [] {
        const QPair<Operation::Kind, const char *> names[] = {
            {Operation::Open, "open openat creat"},
            {Operation::Close, "close"},
            {Operation::Read, "read pread64"},
            {Operation::Write, "write pwrite64 writev"},
            {Operation::Truncate, "ftruncate truncate"},
            {Operation::Rename, "rename renameat renameat2"},
            {Operation::Remove, "unlink unlinkat rmdir"},
            {Operation::MakeFolder, "mkdir mkdirat"},
            {Operation::Link, "link linkat symlink symlinkat"},
            {Operation::SyncAll, "sync syncfs"},
            {Operation::SyncFile, "fsync fdatasync"},
            {Operation::Control, "ioctl fcntl"},
            {Operation::Start, "clone clone3 fork vfork"},
            {Operation::Program, "execve"},
            {Operation::Reap, "wait4 waitid"},
            {Operation::Pause, "nanosleep clock_nanosleep"},
            {Operation::Poll, "poll"},
            {Operation::Exit, "exit_group"},
            {Operation::Other, "lseek dup dup2 dup3 copy_file_range sendfile"}};
        QHash<QByteArray, Operation::Kind> kinds;
        for (const auto &row : names) {
            for (const QByteArray &name : QByteArray(row.second).split(' '))
                kinds[name] = row.first;
        }
        return kinds;
    }();
    return all;
}

// "\x41" to A; strace writes every byte of every text so.
QByteArray decoded(const QByteArray &text)
{
    QByteArray bytes;
    for (int i = 0; i < text.size(); ++i) {
        if (text.mid(i, 2) == "\\x" && i + 3 < text.size()) {
            bytes += QByteArray::fromHex(text.mid(i + 2, 2));
            i += 3;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

// The end of the list that begins after the bracket before `from`.
int closing(const QByteArray &text, int from)
{
    int depth = 0;
    for (int i = from; i < text.size(); ++i) {
        if (strchr("([{", text[i]))
            ++depth;
        else if (strchr(")]}", text[i]) && depth-- == 0)
            return i;
    }
    return -1;
}

// The elements of a list, at its commas but not those inside brackets.
QList<QByteArray> split(const QByteArray &list)
{
    QList<QByteArray> elements;
    int depth = 0, from = 0;
    for (int i = 0; i <= list.size(); ++i) {
        const char c = i < list.size() ? list[i] : ',';
        depth += strchr("([{", c) ? 1 : strchr(")]}", c) ? -1 : 0;
        if (c == ',' && (depth == 0 || i == list.size())) {
            elements << list.mid(from, i - from).trimmed();
            from = i + 1;
        }
    }
    return elements;
}

// The texts between quotes, none of which holds one; the path between the angle brackets of
// "6</dev/ttyO1>".
QByteArray quoted(const QByteArray &arg)
{
    QByteArray text;
    const QByteArrayList parts = arg.split('"');
    for (int i = 1; i < parts.size(); i += 2)
        text += decoded(parts[i]);
    return text;
}

QByteArray annotated(const QByteArray &arg)
{
    const int from = arg.indexOf('<'), to = arg.lastIndexOf('>');
    return to > from ? decoded(arg.mid(from + 1, to - from - 1)) : QByteArray();
}

qint64 numberIn(const QByteArray &text, const char *after)
{
    const int at = text.indexOf(after);
    return at < 0 ? 0 : strtoll(text.constData() + at + strlen(after), nullptr, 0);
}

int descriptorIn(const QByteArray &arg)
{
    return int(strtol(arg.constData(), nullptr, 10));
}

} // namespace

QStringList traceCommand(const QString &file)
{
    QStringList calls;
    for (const QByteArray &name : kinds().keys())
        calls << name;
    calls.sort();
    // Copies inside the kernel would hide their bytes: refused, they are read and written instead.
    // Only what is traced, too, is refused.
    return QString(
               "strace -D -f -qq --seccomp-bpf -y -xx -s 65536 -a1 -e trace=%1 -e abbrev=execve "
               "-e signal=none -e inject=sync,fsync,fdatasync,syncfs:retval=0 "
               "-e inject=copy_file_range,sendfile:error=EINVAL -o %2")
        .arg(calls.join(','), file)
        .split(' ');
}

QVector<Operation> TraceReader::read(const QByteArray &text)
{
    rest_ += text;
    QVector<Operation> operations;
    int from = 0;
    for (int end; (end = rest_.indexOf('\n', from)) >= 0; from = end + 1) {
        Operation operation;
        if (!parse(rest_.mid(from, end - from), &operation))
            continue;
        resolve(&operation);
        operations.append(operation);
    }
    rest_.remove(0, from);
    return operations;
}

// False for what is no call, or has not ended yet.
bool TraceReader::parse(QByteArray line, Operation *operation)
{
    const int blank = line.indexOf(' ');
    const int thread = operation->thread = line.left(blank).toInt();
    line = line.mid(blank).trimmed();
    operation->process = processOf(thread).number;
    if (line.endsWith("<unfinished ...>")) {
        unfinished_[thread] = line.left(line.lastIndexOf('<')).trimmed();
        return false;
    }
    if (line.startsWith("<... "))
        line = unfinished_.take(thread) + line.mid(line.indexOf('>') + 1);
    // Pictures for whoever looks at the screen, which can be most of a trace.
    if (line.startsWith("write") && line.left(40).contains("<socket:"))
        return false;
    const int open = line.indexOf('('), close = closing(line, open + 1);
    if (open <= 0 || close < 0)
        return false;
    operation->name = line.left(open);
    operation->kind = kinds().value(operation->name, Operation::Other);
    operation->args = split(line.mid(open + 1, close - open - 1));
    const QByteArray result = line.mid(line.indexOf("= ", close) + 2);
    operation->result = strtoll(result.constData(), nullptr, 0);
    if (operation->result < 0 || result.startsWith('?'))
        operation->error = result.split(' ').value(1);
    if (operation->kind == Operation::Open && operation->ok())
        operation->target = annotated(result);
    return true;
}

// A thread that shows up before the call that makes it has ended belongs to whoever is making one.
TraceReader::Process &TraceReader::processOf(int thread)
{
    if (threads_.contains(thread))
        return *threads_[thread];
    for (auto i = unfinished_.begin(); i != unfinished_.end(); ++i) {
        const QByteArray name = i->left(i->indexOf('('));
        if (kinds().value(name) == Operation::Start) {
            adopt(thread, i.key(), i->contains("CLONE_THREAD"));
            return *threads_[thread];
        }
    }
    auto process = std::make_shared<Process>();
    process->number = thread;
    process->root = threads_.isEmpty();
    threads_[thread] = process;
    return *process;
}

void TraceReader::adopt(int thread, int parent, bool asThread)
{
    const std::shared_ptr<Process> maker = threads_[parent];
    if (asThread) {
        threads_[thread] = maker;
        return;
    }
    auto process = std::make_shared<Process>(*maker); // with its files and their positions
    process->number = thread;
    process->starter = maker->root ? parent : maker->ran ? 0 : maker->starter;
    process->branch = maker->root ? thread : maker->branch;
    process->root = process->ran = false;
    threads_[thread] = process;
}

void TraceReader::started(const Operation &operation)
{
    const int thread = int(operation.result);
    if (operation.ok() && thread > 0 && !threads_.contains(thread))
        adopt(thread, operation.thread, operation.args.join(',').contains("CLONE_THREAD"));
}

void TraceReader::resolve(Operation *operation)
{
    Process &process = *threads_[operation->thread];
    switch (operation->kind) {
    case Operation::Start:
        started(*operation);
        break;
    case Operation::Program:
        operation->path = quoted(operation->args.value(0));
        for (const QByteArray &word : split(operation->args.value(1).mid(1).chopped(1)))
            operation->words << quoted(word);
        if (!process.ran && !process.root) {
            operation->starter = process.starter;
            operation->branch = process.branch;
        }
        if (!operation->ok())
            break;
        process.ran = true;
        for (auto i = process.files.begin(); i != process.files.end();)
            i = i->closeOnExec ? process.files.erase(i) : std::next(i);
        break;
    case Operation::Exit: // its number may be given again
        if (!process.root)
            threads_.remove(operation->thread);
        break;
    case Operation::Reap:
        if (operation->name == "waitid" && operation->ok())
            operation->result = numberIn(operation->args.join(','), "si_pid=");
        break;
    case Operation::Pause:
        operation->at = numberIn(operation->args.join(','), "tv_sec=") * 1000000000
            + numberIn(operation->args.join(','), "tv_nsec=");
        break;
    case Operation::Open:
    case Operation::Rename:
    case Operation::Remove:
    case Operation::MakeFolder:
    case Operation::Link:
        resolvePaths(operation);
        break;
    default:
        resolveDescriptor(operation);
    }
}

void TraceReader::resolvePaths(Operation *operation)
{
    QList<QByteArray> paths;
    QByteArray folder;
    for (const QByteArray &arg : operation->args) {
        if (!arg.startsWith('"')) {
            folder = annotated(arg);
            continue;
        }
        const QByteArray path = quoted(arg);
        paths << (path.startsWith('/') || folder.isEmpty() ? path : folder + '/' + path);
    }
    if (operation->kind == Operation::Open) {
        const QByteArray flags = operation->args.join(','), given = quoted(operation->args.join());
        operation->path = given.startsWith('/') ? given : operation->target;
        operation->fd = int(operation->result);
        if (operation->ok())
            threads_[operation->thread]->files[operation->fd] = {
                std::make_shared<File>(File{operation->path, flags.contains("O_APPEND"), 0}),
                flags.contains("O_CLOEXEC")};
        return;
    }
    const bool link = operation->kind == Operation::Link;
    operation->path = paths.value(link ? 1 : 0);
    operation->target = paths.value(link ? 0 : 1);
}

void TraceReader::copyDescriptor(const Operation &operation)
{
    Files &files = threads_[operation.thread]->files;
    if (!operation.ok())
        return;
    if (files.contains(operation.fd))
        files[int(operation.result)] = {files[operation.fd].file,
                                        operation.args.join(',').contains("CLOEXEC")};
    else
        files.remove(int(operation.result));
}

void TraceReader::resolveDescriptor(Operation *operation)
{
    const QByteArray first = operation->args.value(0);
    operation->fd = descriptorIn(first);
    Files &files = threads_[operation->thread]->files;
    const std::shared_ptr<File> file = files.value(operation->fd).file;
    operation->path = file ? file->path : annotated(first);
    if (operation->name == "truncate")
        operation->path = quoted(first);
    const QByteArray second = operation->args.value(1);
    switch (operation->kind) {
    case Operation::Read:
    case Operation::Write:
        operation->bytes =
            operation->ok() || operation->kind == Operation::Write ? quoted(second) : QByteArray();
        if (operation->fd == -2)
            structure_ = operation->bytes;
        if (operation->name.startsWith('p'))
            operation->at = strtoll(operation->args.value(3).constData(), nullptr, 0);
        else if (file && (!file->append || operation->kind == Operation::Read))
            operation->at = file->position;
        if (file && operation->ok() && !operation->name.startsWith('p'))
            file->position += operation->result;
        break;
    case Operation::Truncate:
        operation->at = strtoll(second.constData(), nullptr, 0);
        break;
    case Operation::Close:
        if (operation->ok())
            files.remove(operation->fd);
        break;
    case Operation::Control:
        if (second == "TIOCSRS485" || second == "TIOCSSERIAL")
            std::swap(operation->bytes, structure_);
        if (second.startsWith("F_DUPFD"))
            copyDescriptor(*operation);
        if (second == "F_SETFD" && files.contains(operation->fd))
            files[operation->fd].closeOnExec = operation->args.value(2) == "FD_CLOEXEC";
        break;
    default:
        if (operation->name == "lseek" && file && operation->ok())
            file->position = operation->result;
        if (operation->name.startsWith("dup"))
            copyDescriptor(*operation);
    }
}
