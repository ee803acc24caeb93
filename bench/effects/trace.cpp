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
QByteArray decoded(QByteArray text)
{
    return QByteArray::fromPercentEncoding(text.replace("\\x", "\\"), '\\');
}

// The elements of the list that begins before `from`, at its commas but not those inside brackets;
// `end`: where it ends, -1 if it does not.
QList<QByteArray> elements(const QByteArray &text, int from, int *end)
{
    QList<QByteArray> all;
    int depth = 0;
    for (*end = from; *end < text.size() && depth >= 0; ++*end) {
        const char c = text[*end];
        depth += strchr("([{", c) ? 1 : strchr(")]}", c) ? -1 : 0;
        if (depth < 0 || (depth == 0 && c == ',')) {
            all << text.mid(from, *end - from).trimmed();
            from = *end + 1;
        }
    }
    *end = depth < 0 ? *end - 1 : -1;
    return all;
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

// The number behind the first `after`, 0 where there is none.
qint64 numberIn(const QByteArray &text, const char *after = "")
{
    const int at = text.indexOf(after);
    return at < 0 ? 0 : strtoll(text.constData() + at + strlen(after), nullptr, 0);
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
               "strace -D -f -qq --seccomp-bpf -y -xx -s 32768 -a1 -e trace=%1 -e abbrev=execve "
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
    for (int end; (end = rest_.indexOf('\n', from)) >= 0; from = end + 1)
        readLine(rest_.mid(from, end - from), &operations);
    rest_.remove(0, from);
    return operations;
}

// What a new thread does waits until the call that made it has told its number: before that nobody
// knows whose it is, for several may be making one.
void TraceReader::readLine(const QByteArray &line, QVector<Operation> *operations)
{
    const int thread = line.left(line.indexOf(' ')).toInt();
    if (threads_.isEmpty()) {
        threads_[thread] = std::make_shared<Process>();
        threads_[thread]->number = thread;
        threads_[thread]->root = true;
    }
    if (!threads_.contains(thread)) {
        early_[thread] << line;
        return;
    }
    Operation operation;
    if (!parse(line, &operation))
        return;
    resolve(&operation);
    operations->append(operation);
    if (operation.kind == Operation::Start) {
        for (const QByteArray &early : early_.take(int(operation.result)))
            readLine(early, operations);
    }
}

// False for what is no call, or has not ended yet.
bool TraceReader::parse(QByteArray line, Operation *operation)
{
    const int blank = line.indexOf(' ');
    const int thread = operation->thread = line.left(blank).toInt();
    line = line.mid(blank).trimmed();
    operation->process = threads_[thread]->number;
    if (line.endsWith("<unfinished ...>")) {
        unfinished_[thread] = line.left(line.lastIndexOf('<')).trimmed();
        return false;
    }
    if (line.startsWith("<... "))
        line = unfinished_.take(thread) + line.mid(line.indexOf('>') + 1);
    // Pictures for whoever looks at the screen, which can be most of a trace.
    if (line.startsWith("write") && annotated(line.left(200)).startsWith("socket:"))
        return false;
    const int open = line.indexOf('(');
    int close = -1;
    operation->args = elements(line, open + 1, &close);
    if (open <= 0 || close < 0)
        return false;
    operation->name = line.left(open);
    operation->kind = kinds().value(operation->name, Operation::Other);
    const QByteArray result = line.mid(line.indexOf("= ", close) + 2);
    operation->result = numberIn(result);
    if (operation->result < 0 || result.startsWith('?'))
        operation->error = result.split(' ').value(1);
    if (operation->kind == Operation::Open && operation->ok())
        operation->target = annotated(result);
    return true;
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

void TraceReader::becomeProgram(Process *process, Operation *operation)
{
    int end = 0;
    operation->path = quoted(operation->args.value(0));
    for (const QByteArray &word : elements(operation->args.value(1), 1, &end))
        operation->words << quoted(word);
    if (!process->ran && !process->root) {
        operation->starter = process->starter;
        operation->branch = process->branch;
    }
    if (!operation->ok())
        return;
    process->ran = true;
    for (auto i = process->files.begin(); i != process->files.end();)
        i = i->closeOnExec ? process->files.erase(i) : std::next(i);
}

void TraceReader::resolve(Operation *operation)
{
    const std::shared_ptr<Process> process = threads_[operation->thread];
    const QByteArray args = operation->args.join(',');
    const int child = int(operation->result);
    switch (operation->kind) {
    case Operation::Start:
        if (child > 0)
            adopt(child, operation->thread, args.contains("CLONE_THREAD"));
        break;
    case Operation::Program:
        becomeProgram(process.get(), operation);
        break;
    case Operation::Exit: // its number may be given again
        if (!process->root)
            threads_.remove(operation->thread);
        break;
    case Operation::Reap:
        if (operation->name == "waitid" && operation->ok())
            operation->result = numberIn(args, "si_pid=");
        break;
    case Operation::Pause:
        operation->at = numberIn(args, "tv_sec=") * 1000000000 + numberIn(args, "tv_nsec=");
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
    operation->fd = int(numberIn(first));
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
            operation->at = numberIn(operation->args.value(3));
        else if (file && (!file->append || operation->kind == Operation::Read))
            operation->at = file->position;
        if (file && operation->ok() && !operation->name.startsWith('p'))
            file->position += operation->result;
        break;
    case Operation::Truncate:
        operation->at = numberIn(second);
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
