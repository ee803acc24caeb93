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

QByteArray runProcess(const QString &commandLine, int limitMs, const QString &workingDirectory)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    startProcess(process, commandLine);
    process.waitForFinished(limitMs);
    return process.readAllStandardOutput();
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
