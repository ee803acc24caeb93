#include "command.h"

#include <QProcess>
#include <cstdlib>

constexpr int ValueLineLength = 59; // longest line a number is read from

void runShell(const char *command)
{
    const int status = system(command);
    Q_UNUSED(status)
}

// Blanks separate, double quotes group, as in `date +"%Y-%m-%d %H:%M:%S"`.
static bool setCommand(QProcess &process, const QString &commandLine)
{
    QStringList words = QProcess::splitCommand(commandLine);
    if (words.isEmpty())
        return false;
    process.setProgram(words.takeFirst());
    process.setArguments(words);
    return true;
}

void startProcess(QProcess &process, const QString &commandLine)
{
    if (setCommand(process, commandLine))
        process.start(QIODevice::ReadWrite);
}

static QByteArray outputOf(QProcess &process, int limitMs)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QIODevice::ReadWrite);
    process.waitForFinished(limitMs);
    return process.readAllStandardOutput();
}

QByteArray runProcess(const QString &commandLine, int limitMs, const QString &workingDirectory)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    return setCommand(process, commandLine) ? outputOf(process, limitMs) : QByteArray();
}

QByteArray runProgram(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    return outputOf(process, NoTimeLimit);
}

QByteArray firstLineOf(const QString &commandLine, int maxLength, int limitMs)
{
    const QByteArray output = runProcess(commandLine, limitMs);
    const int lineEnd = output.indexOf('\n');
    return output.left(qMin(lineEnd < 0 ? output.size() : lineEnd + 1, maxLength));
}

int numberFrom(const QString &commandLine, int limitMs)
{
    return atoi(firstLineOf(commandLine, ValueLineLength, limitMs).constData());
}

void startInBackground(const QString &commandLine)
{
    QProcess process;
    if (setCommand(process, commandLine))
        process.startDetached();
}
