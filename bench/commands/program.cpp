// The commands that are Python programs.
#include "commands/commands.h"
#include "panel/files.h"
#include "panel/virtualpanel.h"

#include <QCoreApplication>

#include <unistd.h>

int runProgram(const QStringList &args)
{
    // Debian's own, which has Debian's modules.
    const QByteArray python = "/usr/bin/python3";
    qputenv("BENCH", QCoreApplication::applicationFilePath().toLocal8Bit());
    qputenv("BENCH_VERSION", QCoreApplication::applicationVersion().toLocal8Bit());
    qputenv("PYTHONDONTWRITEBYTECODE", "1");
    std::vector<QByteArray> words{python, sharedFile("bench/program.py").toLocal8Bit()};
    for (const QString &arg : args)
        words.push_back(arg.toLocal8Bit());
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(python, argv.data());
    throw BenchError(python + " is not installed: apt-get install python3");
}

int runTraced(const QStringList &args)
{
    if (boardWanted() || qEnvironmentVariableIsSet("BENCH_AGENT_ROOT"))
        throw BenchError("only an agent of this machine can be traced, not the ARM one");
    return runProgram(args);
}
