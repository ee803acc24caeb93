#include "commands/commandline.h"
#include "commands/commands.h"
#include "panel/burninbus.h"
#include "panel/interrupt.h"

#include <QCoreApplication>

int runBus(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Starts virtual panels at burn-in on one RS-485 bus, with the station numbers 1, 2, ... "
        "and leaves\nthem on until Ctrl-C, for any station software of this machine.",
        {{"panels", "How many (1 to 32).", "count", "16"}});
    const int count = parser.number("panels", 1, 32);
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
