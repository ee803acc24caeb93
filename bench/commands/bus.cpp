#include "commands/commands.h"
#include "commands/interrupt.h"
#include "panel/burninbus.h"

#include <QCommandLineParser>
#include <QCoreApplication>

int runBus(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Starts virtual panels at burn-in on one RS-485 bus, with the station numbers 1, 2, ... "
        "and "
        "leaves\nthem on until Ctrl-C, for any station software of this machine.");
    parser.addHelpOption();
    parser.addOption({"panels", "How many (1 to 32).", "count", "16"});
    parser.process(args);
    const int count = parser.value("panels").toInt();
    if (count < 1 || count > 32)
        throw BenchError("--panels must be 1 to 32");
    quitOnInterrupt();
    printf("Starting %d panels ...\n", count);
    fflush(stdout);
    const auto panels = burnInBus(count);
    const QString path = panels[0]->linkPath(Port::ttyO3);
    QStringList numbers;
    for (int number = 1; number <= count; ++number)
        numbers << QString::number(number);
    printf("The bus is up: %s (9600 7E1)\n"
           "Test them all: bench station --port %s --level bi --station %s --yes\n"
           "Ctrl-C switches them off.\n",
           qPrintable(path), qPrintable(path), qPrintable(numbers.join(',')));
    fflush(stdout);
    if (!interrupted())
        QCoreApplication::exec();
    return 0;
}
