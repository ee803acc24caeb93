// The agent's window in this process, in a sandbox that run.sh makes: a file system of its own in
// memory, no program, no port.
#pragma once

#include "mainwindow.h"
#include "system/command.h"

#include <QApplication>
#include <QFile>
#include <unistd.h>

// The medium is memory.
extern "C" void sync() { }
extern "C" int fsync(int)
{
    return 0;
}

// A process for each program would cost more than the boot: they are answered here. Only the
// product application says something, piece by piece, and `cat` what is in its file.
inline QByteArray identity;

void runShell(const char *) { }
void startProcess(QProcess &, const QString &) { }
void startBeside(const QString &) { }
QByteArray runProcess(const QString &, int, const QString &)
{
    return {};
}
QByteArray runProgram(const QString &program, const QStringList &arguments)
{
    QFile file(arguments.value(0));
    const bool reads = program == QLatin1String("cat") && file.open(QIODevice::ReadOnly);
    return reads ? file.readAll() : QByteArray();
}
QByteArray firstLineOf(const QString &, int, int)
{
    return {};
}
int numberFrom(const QString &, int)
{
    return 0;
}
QByteArray awaitOutput(QProcess &, int, bool (*isEnough)(const QByteArray &))
{
    int arrived = 0;
    while (isEnough && arrived < identity.size() && !isEnough(identity.left(arrived)))
        arrived += 64;
    return identity.left(OutputLimit);
}

// A file of the panel; absent instead when `bytes` is null.
inline void putFile(const char *path, const QByteArray &bytes)
{
    QFile::remove(path);
    QFile file(path);
    if (!bytes.isNull() && file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

// Fuzzing must not touch a machine: without the sandbox's mark nothing runs.
inline void startToolkit()
{
    if (!QFile::exists("/sandbox")) {
        fputs("Start it by tests/fuzz/run.sh, which makes its sandbox.\n", stderr);
        _exit(2);
    }
    static int count = 1;
    static char name[] = "fuzz", *arguments[] = {name, nullptr};
    new QApplication(count, arguments);
}
