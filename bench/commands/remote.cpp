#include "commands/commandline.h"
#include "commands/commands.h"
#include "fixture/faults.h"
#include "panel/bencherror.h"
#include "panel/control.h"

#include <QFileInfo>

#include <cstdio>

namespace {

struct Verb {
    const char *name, *argument, *help;
};
const Verb verbs[] = {
    {"power", "on, off or cycle",
     "Switches a running `bench panel`. On and cycle return once it listens on its PC link."},
    {"touch", "X Y, calibrate, calibrate3, check, press X Y or release",
     "Touches the screen of a running `bench panel`: a spot for a moment, or what a calibration\n"
     "(with five or three targets in its check) or a check shows, target after target."},
    {"look", "red, green, blue, white, bands, dark or RRGGBB",
     "Waits until the screen of a running `bench panel` looks so, for 5 s. Exit status 1 if it "
     "does not."},
    {"screenshot", "FILE",
     "Writes the screen of a running `bench panel` to a PNG file, once it has come to rest."},
    {"fault", "list, show, set or clear",
     "Faults of the fixture and of the panel on it, by name.\n\n"
     "  bench fault list                       all of them, and what fails by each\n"
     "  bench fault show                       what is set on a running `bench panel`\n"
     "  bench fault set NAME[:VALUE]...\n"
     "  bench fault clear [NAME...]            those, or all\n\n"
     "`bench panel`, `bench produce` and others set them from the start with --fault."},
};

void listFaults()
{
    printf("%-15s %s\n%-15s   %s\n\n", "NAME[:VALUE]", "what is wrong then", "",
           "what fails by it");
    for (const Fault &fault : allFaults()) {
        const QString alone = fault.standard.isEmpty() ? "" : "; alone: " + fault.standard;
        const QString values = fault.values.isEmpty() ? "" : " (" + fault.example + alone + ")";
        printf("%-15s %s%s\n%-15s   %s\n", qPrintable(fault.name), qPrintable(fault.meaning),
               qPrintable(values), "", qPrintable(fault.fails));
    }
}

void switchFaults(const QString &folder, const QStringList &words)
{
    const QString action = words[0];
    if (!QStringList({"show", "set", "clear"}).contains(action))
        throw BenchError(QString("\"%1\" is none of list, show, set, clear").arg(action));
    if (action == "set" && words.size() < 2)
        throw BenchError("set which fault? `bench fault list` shows them all");
    if (words.size() < 2)
        puts(qPrintable(PanelControl::send(folder, "fault " + action)));
    for (const QString &fault : words.mid(1))
        printf("%s %s: %s\n", qPrintable(action), qPrintable(fault),
               qPrintable(PanelControl::send(folder, "fault " + action + ' ' + fault)));
}

} // namespace

int runRemote(const QStringList &args)
{
    const QString name = args[0];
    const Verb *verb = verbs;
    while (name != verb->name)
        ++verb;
    QList<CommandLine::Word> asked{{"what", verb->argument, verb->argument}};
    if (name == "fault")
        asked = {{"action", verb->argument}, {"fault", "NAME or NAME:VALUE", "[fault...]"}};
    const CommandLine parser(
        args, verb->help,
        {{"panel", "Folder of the running panel, as it prints it (default: the only one).",
          "folder"}},
        asked);
    const QStringList words = parser.positionalArguments();
    const QString folder = parser.value("panel");
    if (name == "fault" && words.value(0, "list") == "list") {
        listFaults();
    } else if (name == "fault") {
        switchFaults(folder, words);
    } else if (words.isEmpty()) {
        throw BenchError(QString("it needs %1").arg(verb->argument));
    } else {
        QString what = words.join(' ');
        if (name == "screenshot")
            what = QFileInfo(what).absoluteFilePath(); // the panel's bench has a folder of its own
        const QString answer = PanelControl::send(folder, name + ' ' + what);
        if (answer != "ok") {
            fprintf(stderr, "bench %s: %s\n", verb->name, qPrintable(answer));
            return 1;
        }
    }
    return 0;
}
