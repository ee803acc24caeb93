// Running other programs. There are two ways and no third: the shell, for command lines that are
// constants of this program, and a process object, whose line is split into program and arguments
// without a shell. Text that came over a port goes through neither but the second, and only after
// its form was checked. No exit status is examined: results are read back from files or output.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class QProcess;

constexpr int NoTimeLimit = -1;

// Of a process's output this much is kept; what comes after it is read and dropped, so that a
// program that prints without end costs no memory.
constexpr int OutputLimit = 0x10000;

// Runs `command` through the system shell and waits for it.
void runShell(const char *command);

// Runs `commandLine` as a process and waits for its end up to `limitMs`, when it is killed. Returns
// what it wrote to its standard output until then; empty if it could not be started.
QByteArray runProcess(const QString &commandLine, int limitMs = NoTimeLimit,
                      const QString &workingDirectory = QString());

// The same for a program with its arguments apart: what came over a port stays one argument,
// whatever bytes it has.
QByteArray runProgram(const QString &program, const QStringList &arguments);

// The first line of that output, line end included, at most `maxLength` bytes.
QByteArray firstLineOf(const QString &commandLine, int maxLength, int limitMs = NoTimeLimit);

// The leading decimal number of that line as atoi reads it; 0 without output.
int numberFrom(const QString &commandLine, int limitMs = NoTimeLimit);

// Starts `commandLine` in `process` without waiting.
void startProcess(QProcess &process, const QString &commandLine);

// Waits for the end of a started process as runProcess() does. `isEnough`, if given, is asked
// whenever more of the output is there: from its first "yes" on the process has `LastWordsMs` left.
constexpr int LastWordsMs = 3000;
QByteArray awaitOutput(QProcess &process, int limitMs = NoTimeLimit,
                       bool (*isEnough)(const QByteArray &output) = nullptr);

// Starts `commandLine` as a child that runs beside this program, printing where it prints; its end
// is not waited for.
void startBeside(const QString &commandLine);
