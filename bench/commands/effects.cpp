#include "commands/commands.h"
#include "effects/session.h"
#include "panel/bencherror.h"

#include <QCommandLineParser>
#include <QRegularExpression>

namespace {

// Long lines are wrapped between their parts, as those of the expected texts may be.
void printEffects(const QStringList &lines)
{
    constexpr int width = 100, indent = 8;
    static const QRegularExpression parts("(?:\"(?:[^\"\\\\]|\\\\.)*\"|[^ \"])+");
    for (const QString &line : lines) {
        QString text = line.section(' ', 0, 0).leftJustified(indent - 1);
        if (line.startsWith("shell "))
            printf("%s %s\n", qPrintable(text), qPrintable(line.section(' ', 1)));
        if (line.startsWith("shell "))
            continue;
        auto part = parts.globalMatch(line.section(' ', 1));
        while (part.hasNext()) {
            const QString next = part.next().captured();
            if (text.size() - text.lastIndexOf('\n') + next.size() > width)
                text += '\n' + QString(indent - 1, ' ');
            text += ' ' + next;
        }
        printf("%s\n", qPrintable(text.trimmed()));
    }
}

int compare(const QStringList &files)
{
    int different = 0;
    for (const QString &file : files) {
        EffectSession session;
        for (const EffectSection &section : readEffects(file)) {
            const QString difference = effectDifference(section.effects, session.run(section));
            printf("%s  %s:%d  %s\n%s", difference.isEmpty() ? "same   " : "DIFFERS",
                   qPrintable(file), section.line, qPrintable(section.title),
                   qPrintable(difference));
            fflush(stdout);
            different += !difference.isEmpty();
        }
    }
    return different != 0;
}

} // namespace

int runEffects(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Prints, in order, what each request makes the agent do to a virtual panel: ports with\n"
        "their line settings, bytes, commands, files and syncs, input events, pauses, and what\n"
        "stays open. REQUEST is CODE or \"CODE ARGUMENT\" as `bench send` takes them, or the "
        "bytes\n"
        "between quotes. docs/panel-contract.md explains the lines.\n"
        "Examples: bench effects --level T1 8102 \"0601 KLV1234X5W00001205\"\n"
        "          bench effects --compare tests/effects/ict.txt");
    parser.addHelpOption();
    parser.addOptions(
        {{"level", "Level at which the panel starts (default ICT).", "level", "ICT"},
         {"boot", "Print what the start does, too."},
         {"agent-args", "Arguments of the agent, for a run mode; print the start.", "args"},
         {"fault", "A fault of panel or fixture during each request; may be repeated.", "fault"},
         {"condition", "Any other condition, as in the expected texts; may be repeated.", "text"},
         {"compare", "The arguments are files of expected texts: run and compare them."}});
    parser.addPositionalArgument("REQUEST", "What to ask.", "REQUEST...");
    parser.process(args);
    if (parser.isSet("compare"))
        return compare(parser.positionalArguments());
    EffectSection boot{"boot", {"level " + parser.value("level").toUpper()}, {}, 0};
    if (parser.isSet("agent-args"))
        boot.conditions << "agent " + parser.value("agent-args");
    EffectSession session;
    const QStringList start = session.run(boot);
    if (parser.isSet("boot") || parser.isSet("agent-args")) {
        printf("= boot\n");
        printEffects(start);
    }
    for (const QString &request : parser.positionalArguments()) {
        EffectSection section{request, parser.values("condition"), {}, 0};
        for (const QString &fault : parser.values("fault"))
            section.conditions << "fault " + fault;
        const QStringList effects = session.run(section);
        printf("\n= %s\n", qPrintable(request));
        printEffects(effects);
        fflush(stdout);
    }
    return 0;
}
