#include "commands/commands.h"
#include "commands/interrupt.h"
#include "commands/traffic.h"
#include "fixture/faultsocket.h"
#include "fixture/fixture.h"
#include "panel/virtualpanel.h"

#include <QCommandLineParser>
#include <QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

// What the level file says for each level; four bytes each.
const QHash<QString, QByteArray> levelLines{
    {"ict", "ICT\n"}, {"t1", "T1 \n"}, {"bi", "BI \n"}, {"t2", "T2 \n"}, {"hmi", "HMI\n"}};

const char levelFile[] = "/usr/local/ict/HMI_TEST_LEVEL.txt";

Port linkPort(VirtualPanel &panel)
{
    return panel.readFile(levelFile).startsWith("BI") ? Port::ttyO3 : Port::ttyO1;
}

void printHowTo(VirtualPanel &panel)
{
    const QByteArray level = panel.readFile(levelFile).trimmed();
    const bool burnIn = linkPort(panel) == Port::ttyO3;
    const QString link = panel.linkPath(linkPort(panel));
    printf("The panel is on, its level file says %s.\n\n"
           "  PC link      %s   (%s)\n"
           "  VNC screen   127.0.0.1:%u   (this machine only)\n"
           "  folder       %s   (its files under root/, its output in agent.log)\n\n",
           level.isEmpty() ? "nothing yet" : level.constData(), qPrintable(link),
           burnIn ? "9600 7E1, RS-485" : "9600 8E1, RTS/CTS", panel.vncPort(),
           qPrintable(panel.folder()));
    printf("Attach\n"
           "  a terminal   socat STDIO %s,raw,echo=0\n"
           "  a station    let it open %s as its serial port\n"
           "  a viewer     vncviewer 127.0.0.1::%u\n"
           "  a fault      bench fault set NAME --panel %s\n\nOther ports:\n",
           qPrintable(link), qPrintable(link), panel.vncPort(), qPrintable(panel.folder()));
    for (int i = 0; i < portCount; ++i) {
        if (panel.linkPath(Port(i)) != link)
            printf("  %-10s   %s\n", portName(Port(i)), qPrintable(panel.linkPath(Port(i))));
    }
    printf("\nEnter cycles its power, Ctrl-C switches it off.\n");
    fflush(stdout);
}

} // namespace

int runPanel(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Starts a virtual panel and leaves it on until Ctrl-C, for any station software, terminal "
        "or\n"
        "VNC viewer of this machine. With --folder the panel keeps its files for the next time.");
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"folder", "The panel's persistent files (default: a temporary folder).", "path"},
        {"factory-new", "Empty the folder first."},
        {"level", "Start at this level: ict, t1, bi, t2, hmi.", "level"},
        {"vnc-port", "TCP port for viewers (default: a free one).", "port", "0"},
        {"agent", "The agent's executable (default: this build's).", "path"},
        {"agent-args", "Arguments for the agent, for example PFVP_EMS.", "args"},
        {"fault", "Start with this fault (repeatable; see `bench fault list`).", "name"},
        {"traffic", "Show what goes over the serial ports, decoded, with times in seconds."},
        {"record", "Write the same to a file, for `bench replay`.", "file"},
        {"no-fixture", "Leave the other ports free: no probes on them, no media in the slots."},
    });
    parser.process(args);

    PanelOptions options;
    options.folder = parser.value("folder");
    options.agent = parser.value("agent");
    options.vncPort = quint16(parser.value("vnc-port").toUInt());
    const QString level = parser.value("level").toLower();
    if (parser.isSet("level") && !levelLines.contains(level))
        throw BenchError(
            QString("there is no level \"%1\": use ict, t1, bi, t2 or hmi").arg(level));

    quitOnInterrupt();
    VirtualPanel panel(options);
    if (parser.isSet("factory-new"))
        panel.factoryNew();
    if (parser.isSet("level"))
        panel.writeFile(levelFile, levelLines[level]);
    std::unique_ptr<Fixture> fixture;
    std::unique_ptr<FaultSocket> switches;
    if (!parser.isSet("no-fixture")) {
        fixture = std::make_unique<Fixture>(panel);
        switches = std::make_unique<FaultSocket>(*fixture, panel.folder());
    } else if (parser.isSet("fault")) {
        throw BenchError("--fault needs the fixture: leave --no-fixture out");
    }
    for (const QString &fault : parser.values("fault")) {
        const QString wrong = fixture->setFault(fault);
        if (!wrong.isEmpty())
            throw BenchError(wrong);
    }
    const QStringList agentArgs = parser.value("agent-args").split(' ', Qt::SkipEmptyParts);
    const std::unique_ptr<FILE, int (*)(FILE *)> record(
        parser.isSet("record") ? fopen(qPrintable(parser.value("record")), "w") : nullptr,
        [](FILE *file) { return file ? fclose(file) : 0; });
    if (parser.isSet("record") && !record)
        throw BenchError("cannot write " + parser.value("record") + ": " + strerror(errno));
    const Traffic::Sinks sinks = {parser.isSet("traffic") ? stdout : nullptr, record.get()};
    std::vector<std::unique_ptr<Traffic>> traffic;
    for (int i = 0; i < portCount && (sinks.screen || sinks.record); ++i)
        traffic.push_back(std::make_unique<Traffic>(panel.port(Port(i)), sinks));
    panel.powerOn(agentArgs);
    printHowTo(panel);

    // A station that changes the level needs a hand at the power switch.
    bool cycling = false;
    QSocketNotifier enter(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&enter, &QSocketNotifier::activated, [&] {
        char line[256];
        if (::read(STDIN_FILENO, line, sizeof line) <= 0) {
            enter.setEnabled(false); // no terminal
            return;
        }
        cycling = true;
        panel.powerCycle(agentArgs);
        cycling = false;
        printHowTo(panel);
    });
    QObject::connect(&panel, &VirtualPanel::powered, [&](bool on) {
        if (!on && !cycling)
            QCoreApplication::quit();
    });
    QCoreApplication::exec();
    if (interrupted())
        return 0;
    printf("The agent ended with status %d.\n%s", panel.waitForExit(0),
           panel.errorOutput().constData());
    return 1;
}
