#include "commands/commands.h"
#include "fixture/faults.h"
#include "panel/bencherror.h"
#include "panel/control.h"

#include <QCommandLineParser>

#include <cstdio>

namespace {

void list()
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

} // namespace

int runFault(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Faults of the fixture and of the panel on it, by name.\n\n"
        "  bench fault list                       all of them, and what fails by each\n"
        "  bench fault show                       what is set on a running `bench panel`\n"
        "  bench fault set NAME[:VALUE]...\n"
        "  bench fault clear [NAME...]            those, or all\n\n"
        "`bench panel`, `bench produce` and others set them from the start with --fault.");
    parser.addHelpOption();
    parser.addOption(PanelControl::option());
    parser.addPositionalArgument("action", "list, show, set or clear");
    parser.addPositionalArgument("fault", "NAME or NAME:VALUE", "[fault...]");
    parser.process(args);
    const QStringList words = parser.positionalArguments();
    const QString action = words.value(0, "list"), folder = parser.value("panel");
    if (action == "list") {
        list();
        return 0;
    }
    if (!QStringList({"show", "set", "clear"}).contains(action))
        throw BenchError(QString("\"%1\" is none of list, show, set, clear").arg(action));
    if (action == "set" && words.size() < 2)
        throw BenchError("set which fault? `bench fault list` shows them all");
    if (words.size() < 2) {
        const QString answer = PanelControl::send(folder, "fault " + action);
        printf("%s\n", qPrintable(answer));
    }
    for (const QString &fault : words.mid(1))
        printf("%s %s: %s\n", qPrintable(action), qPrintable(fault),
               qPrintable(PanelControl::send(folder, "fault " + action + ' ' + fault)));
    return 0;
}
