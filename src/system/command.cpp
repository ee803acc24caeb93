#include "command.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
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

// What a child says on standard error belongs with the agent's own messages.
static void start(QProcess &process)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QIODevice::ReadWrite);
}

void startProcess(QProcess &process, const QString &commandLine)
{
    if (setCommand(process, commandLine))
        start(process);
}

QByteArray awaitOutput(QProcess &process, int limitMs, bool (*isEnough)(const QByteArray &))
{
    QByteArray output;
    QDeadlineTimer end(limitMs);
    bool more = true;
    while (more && !end.hasExpired()) {
        more = process.waitForReadyRead(int(end.remainingTime()));
        output += process.readAllStandardOutput().left(OutputLimit - output.size());
        if (isEnough && isEnough(output)) {
            isEnough = nullptr;
            end.setRemainingTime(LastWordsMs);
        }
    }
    process.close(); // kills what still runs
    return output;
}

QByteArray runProcess(const QString &commandLine, int limitMs, const QString &workingDirectory)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    startProcess(process, commandLine);
    return awaitOutput(process, limitMs);
}

QByteArray runProgram(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    start(process);
    return awaitOutput(process);
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

void startBeside(const QString &commandLine)
{
    auto *process = new QProcess(QCoreApplication::instance());
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
                     &QObject::deleteLater);
    if (setCommand(*process, commandLine))
        process->start(QIODevice::ReadOnly);
}
