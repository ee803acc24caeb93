#include "station/stand.h"

#include "panel/bencherror.h"
#include "panel/folders.h"
#include "panel/json.h"
#include "station/console.h"

#include <QJsonArray>
#include <QMutex>
#include <QRegularExpression>
#include <QThread>

#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace {

const QJsonArray &knownActions()
{
    static const QJsonArray actions =
        readJson(dataFolder() + "/bench/plans/actions.json")["actions"].toArray();
    return actions;
}

QRegularExpressionMatch matchOf(const QJsonValue &known, const QString &action)
{
    const QString pattern = QRegularExpression::anchoredPattern(known["action"].toString());
    return QRegularExpression(pattern).match(action);
}

// The first character of a line that a person types; "n" when there is no one.
char answer()
{
    char first = '\0', c = '\0';
    while (c != '\n') {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, 100) == 0) {
            if (QThread::currentThread()->isInterruptionRequested()) {
                throw BenchError("interrupted");
            }
            continue;
        }
        if (::read(STDIN_FILENO, &c, 1) <= 0) {
            return 'n';
        }
        first = first ? first : c;
    }
    return first;
}

} // namespace

QString actionFault(const QString &action)
{
    QStringList known;
    for (const QJsonValue &row : knownActions()) {
        if (matchOf(row, action).hasMatch()) {
            return {};
        }
        known << row["action"].toString();
    }
    return QString("unknown action \"%1\"; known are: %2").arg(action, known.join(", "));
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
        if (QThread::currentThread()->isInterruptionRequested()) {
            throw BenchError("interrupted");
        }
    }
}

bool TerminalStand::wantsAgain(const QString &fault)
{
    if (unattended_ || !isatty(STDIN_FILENO)) {
        return false;
    }
    const QMutexLocker lock(&mutex);
    showStatus({});
    say(QString(">> %1: %2").arg(port_, fault), true);
    say("   Try it again?  [r = again, Enter = go on]");
    return toupper(answer()) == 'R';
}

QString TerminalStand::act(const QString &action)
{
    if (action.startsWith("fault ")) {
        return "faults can be set on a virtual panel only";
    }
    if (action.startsWith("settle ")) {
        settle(action.section(' ', 1).toInt());
        return {};
    }
    const QMutexLocker lock(&mutex);
    for (const QJsonValue &row : knownActions()) {
        const QRegularExpressionMatch match = matchOf(row, action);
        if (!match.hasMatch()) {
            continue;
        }
        const QString prompt = row["ask"].toString().replace("%1", match.captured(1));
        if (prompt.isEmpty()) {
            return {};
        }
        showStatus({});
        printf(">> %s: %s  %s\n", qPrintable(port_), qPrintable(prompt),
               unattended_ ? "[taken as done]" : "[Enter = yes, n = no]");
        if (unattended_) {
            return {};
        }
        for (const QJsonValue &line : row["picture"].toArray()) {
            puts(qPrintable(line.toString()));
        }
        fflush(stdout);
        return toupper(answer()) == 'N' ? "not confirmed: " + prompt : QString();
    }
    return actionFault(action);
}
