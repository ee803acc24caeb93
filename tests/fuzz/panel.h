// The agent's window in this process, in a sandbox that run.sh makes: a file system of its own in
// memory, no program on the path, no port.
#pragma once

#include "mainwindow.h"

#include <QApplication>
#include <QFile>
#include <unistd.h>

// The medium is memory; the command lines for the resume log and the exports are constants.
extern "C" void sync() { }
extern "C" int fsync(int)
{
    return 0;
}
extern "C" int system(const char *)
{
    return 0;
}

// A file of the panel; absent instead when `bytes` is null.
inline void putFile(const char *path, const QByteArray &bytes)
{
    QFile::remove(path);
    QFile file(path);
    if (!bytes.isNull() && file.open(QIODevice::WriteOnly)) {
        file.write(bytes);
    }
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
