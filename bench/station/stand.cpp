#include "station/stand.h"

#include <QHash>
#include <QMutex>
#include <QRegularExpression>
#include <QStringList>
#include <cstdio>

namespace station {

namespace {
struct Verb {
    const char *argument; // regular expression of what may follow
    const char *prompt; // what a person is asked to do, %1 the argument; empty for nothing
};
const QHash<QString, Verb> verbs = {
    {"powercycle", {"", "Switch the panel off and on again and wait for its test screen"}},
    {"screenshot", {"[\\w-]+", ""}},
    {"look",
     {"red|green|blue|white|dark|bands|[0-9A-Fa-f]{6}",
      "Does the screen show: %1 (all over, no marks)?"}},
    {"touch",
     {"calibrate3?|check|release|press \\d+ \\d+",
      "Touch every target that the screen shows (%1)"}},
    {"plug", {"usb|sd", "Plug in the medium: %1"}},
    {"unplug", {"usb|sd", "Remove the medium: %1"}},
    {"fault", {"(set|clear) \\S+", ""}},
    {"ask", {".+", "%1"}},
};
}

QString actionFault(const QString &action)
{
    const QString verb = action.section(' ', 0, 0), argument = action.section(' ', 1);
    if (!verbs.contains(verb))
        return QString("unknown action \"%1\"; known are %2")
            .arg(verb, QStringList(verbs.keys()).join(", "));
    const QRegularExpression wanted(QRegularExpression::anchoredPattern(verbs[verb].argument));
    return wanted.match(argument).hasMatch()
        ? QString()
        : QString("action \"%1\": \"%2\" is none of %3").arg(verb, argument, verbs[verb].argument);
}

QString perform(Stand &stand, const QString &action)
{
    return stand.act(action.section(' ', 0, 0), action.section(' ', 1));
}

QString TerminalStand::act(const QString &verb, const QString &argument)
{
    if (verb == "fault")
        return "faults can be set on a virtual panel only";
    static QMutex mutex; // one question at a time
    const QMutexLocker lock(&mutex);
    const QString prompt = verbs[verb].prompt;
    if (prompt.isEmpty())
        return {};
    printf(">> %s: %s", qPrintable(m_port),
           qPrintable(prompt.contains("%1") ? prompt.arg(argument) : prompt));
    if (m_unattended) {
        printf("  [taken as done]\n");
        return {};
    }
    printf("  [Enter = yes, n = no] ");
    fflush(stdout);
    const int first = getchar();
    for (int c = first; c != '\n' && c != EOF;)
        c = getchar();
    return first == 'n' || first == 'N' || first == EOF ? "not confirmed: " + prompt.arg(argument)
                                                        : "";
}

} // namespace station
