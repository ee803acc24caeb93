#include "station/stand.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/console.h"

#include <QMutex>
#include <QRegularExpression>
#include <QThread>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

// The row of an action, the text in its form put into the question; empty for none.
QJsonObject rowOf(const QString &action, const QJsonArray &known)
{
    for (const QJsonValue &value : known) {
        const QString form = value["action"].toString();
        const auto match =
            QRegularExpression(QRegularExpression::anchoredPattern(form)).match(action);
        if (match.hasMatch()) {
            QJsonObject row = value.toObject();
            row["ask"] = row["ask"].toString().replace("%1", match.captured(1));
            return row;
        }
    }
    return {};
}

void stopIfAsked()
{
    if (QThread::currentThread()->isInterruptionRequested())
        throw BenchError("interrupted");
}

// Asks on the terminal. What was typed before the question is no answer to it.
void ask(const QString &question, bool bad = false)
{
    tcflush(STDIN_FILENO, TCIFLUSH);
    say(question, bad);
}

// The first character of a line that a person types; "n" when there is no one.
char answer()
{
    char first = '\0', c = '\0';
    while (c != '\n') {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, 100) == 0)
            stopIfAsked();
        else if (::read(STDIN_FILENO, &c, 1) <= 0)
            return 'n';
        else
            first = first ? first : c;
    }
    return first;
}

} // namespace

QString actionFault(const QString &action, const QJsonArray &known)
{
    QStringList forms;
    for (const QJsonValue &row : known)
        forms << row["action"].toString();
    return rowOf(action, known).isEmpty()
        ? QString("unknown action \"%1\"; known are: %2").arg(action, forms.join(", "))
        : QString();
}

static QMutex mutex; // one question at a time

void TerminalStand::settle(int seconds)
{
    showStatus({});
    say(QString(
            ">> %1: keep the power on for %2 s: the panel archives its logs and clears its SRAM")
            .arg(port_)
            .arg(seconds));
    for (int tenth = 0; tenth < 10 * seconds; ++tenth) {
        QThread::msleep(100);
        stopIfAsked();
    }
}

bool TerminalStand::wantsAgain(const QString &fault)
{
    if (unattended_ || !isatty(STDIN_FILENO))
        return false;
    const QMutexLocker lock(&mutex);
    showStatus({});
    ask(QString(">> %1: %2").arg(port_, fault), true);
    say("   Try it again?  [r = again, Enter = go on]");
    return toupper(answer()) == 'R';
}

QString TerminalStand::act(const QString &action)
{
    if (action.startsWith("fault "))
        return "faults can be set on a virtual panel only";
    if (action.startsWith("settle ")) {
        settle(action.section(' ', 1).toInt());
        return {};
    }
    const QJsonObject row = rowOf(action, actions_);
    const QString prompt = row["ask"].toString();
    if (prompt.isEmpty())
        return actionFault(action, actions_);
    const QMutexLocker lock(&mutex);
    showStatus({});
    const QString question = QString(">> %1: %2  ").arg(port_, prompt);
    if (unattended_) {
        say(question + "[taken as done]");
        return {};
    }
    ask(question + "[Enter = yes, n = no]");
    for (const QString &line : textsOf(row["picture"]))
        say(line);
    return toupper(answer()) == 'N' ? "not confirmed: " + prompt : QString();
}
