#include "panel/sandbox.h"
#include "panel/files.h"
#include "panel/urgency.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <csignal>

namespace {

const char *nameOf(IctDisk disk)
{
    return disk == IctDisk::readOnly ? "readOnly" : disk == IctDisk::full ? "full" : "normal";
}

constexpr int somethingMissing = 95; // what sandbox.sh then ends with

// What to do about a sandbox that did not start, from its status and what it printed.
QString remedy(int status, const QByteArray &errorOutput)
{
    if (status == somethingMissing)
        return errorOutput;
    if (errorOutput.contains("execvp") && errorOutput.contains("Permission denied"))
        return "nothing in the panel's folder can be executed, as on a file system mounted "
               "noexec: let TMPDIR name a folder elsewhere, or take --folder ("
            + errorOutput + ')';
    if (errorOutput.contains("namespace") || errorOutput.contains("uid map")
        || errorOutput.contains("Operation not permitted"))
        return "user namespaces are forbidden here: allow them with \"sysctl -w "
               "kernel.unprivileged_userns_clone=1 "
               "kernel.apparmor_restrict_unprivileged_userns=0\" (whichever this kernel has) and a "
               "user.max_user_namespaces above 0, and in a container with the security options "
               "that permit them ("
            + errorOutput + ')';
    return "the panel's sandbox did not start (" + errorOutput + ')';
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
    const QString inside = "/run/bench/";
    QStringList args{folder_ + "/root", nameOf(options_.ictDisk), options_.agent,
                     options_.agentRoot};
    args << options_.wrapper;
    if (!options_.agentRoot.isEmpty())
        args << QStringList{"qemu-arm-static", "-L", inside + "root"};
    args << inside + QFileInfo(options_.agent).fileName() << agentArgs;
    for (const char *file : {"agent.log", "agent.err"})
        begin_[file] = QFileInfo(folder_ + '/' + file).size();
    status_ = -1;
    // Files, not pipes: nobody has to read while the caller blocks. And not our standard input,
    // which the agent makes non-blocking.
    process_.setStandardInputFile(QProcess::nullDevice());
    process_.setStandardOutputFile(folder_ + "/agent.log", QIODevice::Append);
    process_.setStandardErrorFile(folder_ + "/agent.err", QIODevice::Append);
    {
        const Urgently start;
        process_.start(sharedFile("bench/panel/sandbox.sh"), args);
    }
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
            throw BenchError(remedy(status_, said));
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
