#pragma once

#include <QStringList>

// The commands of `bench`; their sources are here. `args` begins with the command's name, as a
// program's arguments do; the result is the exit status. They throw BenchError.
int runMeasure(const QStringList &args);
int runPanel(const QStringList &args);
// How the Python program of that name is started: the interpreter, then its arguments.
QStringList programOf(const QStringList &args);
// Becomes it; does not return.
int runProgram(const QStringList &args);
int runTraced(const QStringList &args); // one whose agent must be this machine's
int runDrive(const QStringList &args); // what they start
// `bench power`, `touch`, `look`, `screenshot` and `fault`.
int runRemote(const QStringList &args);
int runSoak(const QStringList &args);
int runBus(const QStringList &args);
int runPfvp(const QStringList &args); // needs a QGuiApplication
