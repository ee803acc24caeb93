#include "commands/commands.h"
#include "commands/interrupt.h"
#include "commands/traffic.h"
#include "fixture/fixture.h"
#include "panel/control.h"
#include "panel/virtualpanel.h"

#include <QCommandLineParser>
#include <QSocketNotifier>

#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

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
           "  a terminal   socat STDIO %s,raw,echo=0,crnl\n"
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

PanelOptions optionsOf(const QCommandLineParser &parser)
{
    PanelOptions options;
    options.folder = parser.value("folder");
    options.agent = parser.value("agent");
    bool number = false;
    options.vncPort = parser.value("vnc-port").toUShort(&number);
    if (!number)
        throw BenchError(
            QString("--vnc-port %1: a TCP port is 1 to 65535").arg(parser.value("vnc-port")));
    return options;
}

// The panel's files, before it is switched on.
void prepare(VirtualPanel &panel, const QCommandLineParser &parser)
{
    const QString level = parser.value("level").toLower();
    if (parser.isSet("level") && !QStringList{"ict", "t1", "bi", "t2", "hmi"}.contains(level))
        throw BenchError(
            QString("there is no level \"%1\": use ict, t1, bi, t2 or hmi").arg(level));
    if (parser.isSet("factory-new"))
        panel.factoryNew();
    if (parser.isSet("level")) // four bytes each
        panel.writeFile(levelFile, level.toUpper().leftJustified(3, ' ').toLatin1() + '\n');
}

// Null without a fixture.
std::unique_ptr<Fixture> makeFixture(VirtualPanel &panel, const QCommandLineParser &parser)
{
    if (parser.isSet("no-fixture")) {
        if (parser.isSet("fault"))
            throw BenchError("--fault needs the fixture: leave --no-fixture out");
        return nullptr;
    }
    auto fixture = std::make_unique<Fixture>(panel);
    for (const QString &fault : parser.values("fault")) {
        const QString wrong = fixture->setFault(fault);
        if (!wrong.isEmpty())
            throw BenchError(wrong);
    }
    return fixture;
}

// What another program asks of the running panel.
QString obey(Fixture *fixture, const QString &verb, const QString &argument)
{
    if (!fixture)
        throw BenchError("this panel runs without its fixture");
    if (verb == "fault" && argument == "show") {
        const QStringList faults = fixture->faults();
        return faults.isEmpty() ? "no fault is set" : faults.join(' ');
    }
    const QString wrong = fixture->act(verb, argument);
    if (!wrong.isEmpty())
        throw BenchError(wrong);
    return {};
}

// Until Ctrl-C or the agent's end. Enter cycles the power: a station that changes the level needs a
// hand at the switch.
void leaveOn(VirtualPanel &panel, const QStringList &agentArgs)
{
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
    const auto off = QObject::connect(&panel, &VirtualPanel::powered, [&](bool on) {
        if (!on && !cycling)
            QCoreApplication::quit();
    });
    QCoreApplication::exec();
    QObject::disconnect(off);
}

} // namespace

int runPanel(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Starts a virtual panel and leaves it on until Ctrl-C, for any station software, terminal "
        "or\n"
        "VNC viewer of this machine. With --folder the panel keeps its files for the next time.");
    parser.addHelpOption();
    parser.addOptions({
        {"folder", "The panel's persistent files (default: a temporary folder).", "path"},
        {"factory-new", "Empty the folder first."},
        {"level", "Start at this level: ict, t1, bi, t2, hmi.", "level"},
        {"vnc-port", "TCP port for viewers (default: a free one).", "port", "0"},
        {"agent", "The agent's executable (default: this build's).", "path"},
        {"agent-args", "Arguments for the agent, for example PFVP_EMS.", "args"},
        {"fault", "Start with this fault (repeatable; see `bench fault list`).", "name"},
        {"traffic", "Show what goes over the serial ports, decoded, with times in seconds."},
        {"record", "Write what goes over the PC link as a plan for `bench station --plan`.", "file"},
        {"no-fixture", "Leave the other ports free: no probes on them, no media in the slots."},
    });
    parser.process(args);
    quitOnInterrupt();
    VirtualPanel panel(optionsOf(parser));
    prepare(panel, parser);
    const std::unique_ptr<Fixture> fixture = makeFixture(panel, parser);
    const PanelControl control(panel.folder(), [&](const QString &verb, const QString &argument) {
        return obey(fixture.get(), verb, argument);
    });
    std::unique_ptr<Traffic> traffic;
    if (parser.isSet("traffic") || parser.isSet("record")) {
        traffic = std::make_unique<Traffic>(panel, parser.isSet("traffic") ? stdout : nullptr,
                                            parser.value("record"));
    }
    const QStringList agentArgs = parser.value("agent-args").split(' ', Qt::SkipEmptyParts);
    panel.powerOn(agentArgs);
    printHowTo(panel);
    leaveOn(panel, agentArgs);
    if (interrupted())
        return 0;
    printf("The agent ended with status %d.\n%s", panel.waitForExit(0),
           panel.errorOutput().constData());
    return 1;
}
