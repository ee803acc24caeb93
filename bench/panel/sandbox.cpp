#include "panel/sandbox.h"
#include "panel/filewrite.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>

namespace {

constexpr char armRoot[] = "/run/bench/root";

void needProgram(const char *program, const char *package)
{
    if (QStandardPaths::findExecutable(program).isEmpty())
        throw BenchError(QString("%1 is not installed: apt-get install %2").arg(program, package));
}

// A library that is to be preloaded but is missing would be ignored with a mere warning, and the
// panel would run on the machine's clock: look first.
void needLibrary(const char *folder, const char *name, const char *package)
{
    for (const QFileInfo &lib : QDir("/usr/lib").entryInfoList({"*-linux-*"}, QDir::Dirs)) {
        if (QFile::exists(lib.filePath() + '/' + folder + name))
            return;
    }
    throw BenchError(QString("%1 is not installed: apt-get install %2").arg(name, package));
}

void checkMachine(const PanelOptions &options)
{
    needProgram("bwrap", "bubblewrap");
    needProgram("socat", "socat");
    needLibrary("faketime/", "libfaketimeMT.so.1", "libfaketime");
    needLibrary("", "libeatmydata.so", "libeatmydata1");
    if (!options.agentRoot.isEmpty()) {
        needProgram("qemu-arm-static", "qemu-user-static");
        if (!QFileInfo(options.agentRoot).isDir())
            throw BenchError(
                QString("There is no %1: make it with tools/arm.sh").arg(options.agentRoot));
    }
    if (!QFileInfo(options.agent).isExecutable())
        throw BenchError(QString("The agent %1 does not exist: build it first, or name another")
                             .arg(options.agent));
}

QStringList environment()
{
    const auto ours = [](const char *name) { return qEnvironmentVariable(name); };
    const QPair<QString, QString> variables[] = {
        {"PATH", "/usr/local/bin:/usr/local/ict:/usr/sbin:/usr/bin:/sbin:/bin"},
        {"HOME", "/root"},
        {"LANG", "C.UTF-8"},
        {"XDG_RUNTIME_DIR", "/root"},
        {"QT_QPA_PLATFORM", "vnc:size=800x480:port=5900"},
        // The agent syncs after every record. libeatmydata leaves that out: there is no power to
        // fail here, and each sync would flush the disks of the whole machine.
        {"PANEL_PRELOAD", "libeatmydata.so /usr/$LIB/faketime/libfaketimeMT.so.1"},
        {"FAKETIME_TIMESTAMP_FILE", "/run/bench/clock/system"},
        {"FAKETIME_NO_CACHE", "1"},
        {"DONT_FAKE_MONOTONIC", "1"},
        {"NO_FAKE_STAT", "1"},
        // A sanitizer's runtime insists on being loaded first, which libfaketime is here.
        {"ASAN_OPTIONS", "verify_asan_link_order=0:" + ours("ASAN_OPTIONS")},
        // What the toolkit's VNC platform leaves behind is not the agent's.
        {"LSAN_OPTIONS",
         "suppressions=/run/bench/leaks:print_suppressions=0:" + ours("LSAN_OPTIONS")},
        // A race ends the agent, and with it the test. What the toolkit, which is not built with
        // the sanitizer, allocates in one thread and frees in another after a wait is no race.
        {"TSAN_OPTIONS",
         "report_bugs=1:halt_on_error=1:ignore_noninstrumented_modules=1:" + ours("TSAN_OPTIONS")},
        {"UBSAN_OPTIONS", ours("UBSAN_OPTIONS")},
    };
    QStringList args{"--clearenv"};
    for (const auto &variable : variables)
        args << "--setenv" << variable.first << variable.second;
    return args;
}

// Words with blanks between them.
QStringList words(const char *text)
{
    return QString(text).split(' ');
}

QStringList fileSystem(const PanelOptions &options, const QString &root)
{
    QStringList args{"--bind", root, "/"};
    args << words("--ro-bind /usr /usr --bind") << root + "/usr/local"
         << "/usr/local" << words("--proc /proc --dev-bind /dev/pts /dev/pts --tmpfs /dev/shm");
    for (const char *device :
         {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"})
        args << "--dev-bind" << device << device;
    for (const char *path : {"/etc/fonts", "/etc/alternatives", "/etc/ld.so.cache"})
        args << "--ro-bind-try" << path << path;
    const QString ict = root + "/usr/local/ict";
    if (options.ictDisk == IctDisk::readOnly)
        args << "--ro-bind" << ict << "/usr/local/ict";
    if (options.ictDisk == IctDisk::full)
        args << "--bind" << ict << words("/run/bench/ict --size 1048576 --tmpfs /usr/local/ict");
    if (!options.agentRoot.isEmpty())
        args << "--ro-bind" << options.agentRoot << armRoot;
    return args << "--ro-bind" << options.agent
                << "/run/bench/" + QFileInfo(options.agent).fileName();
}

// The command line that runs `options.agent` on the panel whose "/" is `root`.
QStringList sandboxArguments(const PanelOptions &options, const QString &root,
                             const QStringList &agentArgs)
{
    checkMachine(options);
    // Each namespace by name: "--unshare-all" would go on without a user namespace where it cannot
    // have one, and as root the panel's `date` would then set this machine's clock.
    QStringList args =
        words("--unshare-user --unshare-pid --unshare-net --unshare-ipc --unshare-uts "
              "--uid 0 --gid 0 --hostname panel --cap-drop ALL --die-with-parent "
              "--new-session");
    args << environment() << fileSystem(options, root) << "--chdir"
         << "/";
    args << "/run/bench/init" << options.wrapper;
    if (!options.agentRoot.isEmpty())
        args << "qemu-arm-static"
             << "-L" << armRoot;
    args << "/run/bench/" + QFileInfo(options.agent).fileName();
    return args + agentArgs;
}

// What to do about a sandbox that did not start, from what it printed.
QString sandboxRemedy(const QByteArray &errorOutput)
{
    if (errorOutput.contains("namespace") || errorOutput.contains("uid map")
        || errorOutput.contains("Operation not permitted"))
        return "user namespaces are forbidden here: allow them with \"sysctl -w "
               "kernel.unprivileged_userns_clone=1 "
               "kernel.apparmor_restrict_unprivileged_userns=0\" (whichever this kernel has) and a "
               "user.max_user_namespaces above 0, and in a container with the security options "
               "that permit them";
    return "the panel's sandbox did not start";
}

QList<qint64> childrenOf(qint64 pid)
{
    QList<qint64> children;
    for (const QByteArray &child :
         readWhole(QString("/proc/%1/task/%1/children").arg(pid)).simplified().split(' ')) {
        if (!child.isEmpty())
            children.append(child.toLongLong());
    }
    return children;
}

} // namespace

Sandbox::Sandbox(const PanelOptions &options, const QString &folder)
    : options_(options)
    , folder_(folder)
{
    connect(&process_, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int code) {
                status_ = code;
                emit ended();
            });
}

void Sandbox::start(const QStringList &agentArgs)
{
    const QStringList args = sandboxArguments(options_, folder_ + "/root", agentArgs);
    for (const char *file : {"agent.log", "agent.err"})
        begin_[file] = QFileInfo(folder_ + '/' + file).size();
    status_ = -1;
    // Files, not pipes: nobody has to read while the caller blocks. And not our standard input,
    // which the agent makes non-blocking.
    process_.setStandardInputFile(QProcess::nullDevice());
    process_.setStandardOutputFile(folder_ + "/agent.log", QIODevice::Append);
    process_.setStandardErrorFile(folder_ + "/agent.err", QIODevice::Append);
    process_.start("bwrap", args);
    awaitBoot();
}

void Sandbox::awaitBoot()
{
    const QString mark = folder_ + "/root/run/bench/booted";
    QElapsedTimer clock;
    clock.start();
    bool over = false;
    while (!QFile::exists(mark)) {
        if (over) {
            const QByteArray said = printed("agent.err").trimmed();
            stop();
            throw BenchError(sandboxRemedy(said) + " (" + said + ')');
        }
        over = process_.waitForFinished(2) || process_.state() == QProcess::NotRunning
            || clock.elapsed() > 20000;
    }
}

void Sandbox::stop()
{
    if (process_.state() == QProcess::NotRunning)
        return;
    // The first process of the panel's own numbering: when it is gone, so are all others, and only
    // then does bubblewrap itself end. Killing bubblewrap would not wait for them.
    const QList<qint64> children = childrenOf(process_.processId());
    for (qint64 pid : children)
        ::kill(pid_t(pid), SIGKILL);
    if (children.isEmpty() || !process_.waitForFinished(5000))
        process_.kill();
    process_.waitForFinished(5000);
}

bool Sandbox::isRunning()
{
    if (process_.state() != QProcess::NotRunning)
        process_.waitForFinished(0); // notices an end without the event loop
    return process_.state() != QProcess::NotRunning;
}

int Sandbox::waitForEnd(int ms)
{
    if (isRunning())
        process_.waitForFinished(ms);
    return status_;
}

qint64 Sandbox::agentPid() const
{
    if (process_.state() == QProcess::NotRunning)
        return 0;
    // bubblewrap, the sandbox's first process, and as its oldest child the agent.
    const QList<qint64> first = childrenOf(process_.processId());
    const QList<qint64> own = first.isEmpty() ? first : childrenOf(first.first());
    return own.isEmpty() ? 0 : own.first();
}

QByteArray Sandbox::printed(const QString &file) const
{
    return readWhole(folder_ + '/' + file).mid(int(begin_.value(file)));
}
