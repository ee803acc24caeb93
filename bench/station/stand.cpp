#include "station/stand.h"

#include <QMutex>
#include <QRegularExpression>
#include <QStringList>
#include <cstdio>

namespace {

struct Verb {
    const char *name;
    const char *argument; // regular expression of what may follow
    const char *prompt; // what a person is asked, %1 the argument; empty for nothing
    const char *picture; // what it looks like
};

constexpr char corners[] = "        1-------2\n"
                           "        |   5   |   in this order, as the crosses show\n"
                           "        4-------3\n";

// The first row that fits both verb and argument holds.
const Verb verbs[] = {
    {"powercycle", "", "Switch the panel off and on again and wait for its test screen.", ""},
    {"screenshot", "[\\w-]+", "", ""},
    {"look", "dark", "Is the backlight off?", ""},
    {"look", "bands", "Does the screen show three bands, clean to the edges?",
     "        | red | green | blue |\n"},
    {"look", "red|green|blue|white|[0-9A-Fa-f]{6}", "Is the screen %1 all over, without a mark?",
     ""},
    {"touch", "press \\d+ \\d+", "Put a finger on the pixel (%1) and leave it there.", ""},
    {"touch", "release", "Take the finger away.", ""},
    {"touch", "check", "Touch the five targets.", corners},
    {"touch", "calibrate", "Touch the five targets, then the five of the check.", corners},
    {"touch", "calibrate3", "Touch the five targets, then 1, 3 and 5 of the check.", corners},
    {"plug", "usb|sd", "Plug in the medium: %1.", ""},
    {"unplug", "usb|sd", "Remove the medium: %1.", ""},
    {"fault", "(set|clear) \\S+", "", ""},
    {"ask", ".+", "%1", ""},
};

const Verb *findVerb(const QString &name, const QString &argument)
{
    for (const Verb &verb : verbs) {
        if (name == verb.name
            && QRegularExpression(QRegularExpression::anchoredPattern(verb.argument))
                   .match(argument)
                   .hasMatch()) {
            return &verb;
        }
    }
    return nullptr;
}

} // namespace

QString actionFault(const QString &action)
{
    if (findVerb(action.section(' ', 0, 0), action.section(' ', 1))) {
        return {};
    }
    QStringList known;
    for (const Verb &verb : verbs) {
        known << QString("%1 %2").arg(verb.name, verb.argument).trimmed();
    }
    return QString("unknown action \"%1\"; known are: %2").arg(action, known.join(", "));
}

QString perform(Stand &stand, const QString &action)
{
    return stand.act(action.section(' ', 0, 0), action.section(' ', 1));
}

QString TerminalStand::act(const QString &verb, const QString &argument)
{
    if (verb == "fault") {
        return "faults can be set on a virtual panel only";
    }
    static QMutex mutex; // one question at a time
    const QMutexLocker lock(&mutex);
    const Verb *known = findVerb(verb, argument);
    if (!known || !*known->prompt) {
        return {};
    }
    QString prompt = known->prompt;
    if (prompt.contains("%1")) {
        prompt = prompt.arg(argument.section("press ", -1));
    }
    printf(">> %s: %s", qPrintable(port_), qPrintable(prompt));
    if (unattended_) {
        printf("  [taken as done]\n");
        return {};
    }
    printf("  [Enter = yes, n = no]\n%s", known->picture);
    fflush(stdout);
    const int first = getchar();
    for (int c = first; c != '\n' && c != EOF;) {
        c = getchar();
    }
    return first == 'n' || first == 'N' || first == EOF ? "not confirmed: " + prompt : QString();
}
