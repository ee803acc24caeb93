// The commands that are Python programs.
#include "commands/commands.h"
#include "panel/files.h"
#include "panel/virtualpanel.h"

#include <QCoreApplication>

#include <csignal>
#include <unistd.h>

QStringList programOf(const QStringList &args)
{
    // Debian's own, which has Debian's modules; it leaves nothing beside the sources.
    return QStringList{"/usr/bin/python3", "-B", sharedFile("bench/program.py")} + args;
}

int runProgram(const QStringList &args)
{
    qputenv("BENCH", QCoreApplication::applicationFilePath().toLocal8Bit());
    qputenv("BENCH_VERSION", QCoreApplication::applicationVersion().toLocal8Bit());
    std::vector<QByteArray> words;
    for (const QString &word : programOf(args))
        words.push_back(word.toLocal8Bit());
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    // Until the program can end in order; interrupt.py lets them through.
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ends, signal);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    execv(argv[0], argv.data());
    throw BenchError(words[0] + " is not installed: apt-get install python3");
}

int runTraced(const QStringList &args)
{
    if (boardWanted() || qEnvironmentVariableIsSet("BENCH_AGENT_ROOT"))
        throw BenchError("only an agent of this machine can be traced, not the ARM one");
    return runProgram(args);
}
