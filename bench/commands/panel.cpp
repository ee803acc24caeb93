#include "commands/commands.h"
#include "commands/interrupt.h"
#include "panel/virtualpanel.h"

#include <QCommandLineParser>

#include <cstdio>

namespace {

// What the level file says for each level; four bytes each.
const QHash<QString, QByteArray> levelLines{
    {"ict", "ICT\n"}, {"t1", "T1 \n"}, {"bi", "BI \n"}, {"t2", "T2 \n"}, {"hmi", "HMI\n"}};

void printHowTo(VirtualPanel &panel, bool burnIn)
{
    const QString link = panel.linkPath(burnIn ? Port::ttyO3 : Port::ttyO1);
    printf("The panel is on.\n\n"
           "  PC link      %s   (%s)\n"
           "  VNC screen   127.0.0.1:%u   (this machine only)\n"
           "  its files    %s\n"
           "  its output   %s/agent.log\n\n",
           qPrintable(link), burnIn ? "9600 7E1, RS-485" : "9600 8E1, RTS/CTS", panel.vncPort(),
           qPrintable(panel.hostPath("/")), qPrintable(panel.folder()));
    printf("Attach\n"
           "  a terminal   socat STDIO %s,raw,echo=0\n"
           "  a station    let it open %s as its serial port\n"
           "  a viewer     vncviewer 127.0.0.1::%u\n\nOther ports:\n",
           qPrintable(link), qPrintable(link), panel.vncPort());
    for (int i = 0; i < portCount; ++i) {
        if (panel.linkPath(Port(i)) != link)
            printf("  %-10s   %s\n", portName(Port(i)), qPrintable(panel.linkPath(Port(i))));
    }
    printf("\nCtrl-C switches it off.\n");
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
        panel.writeFile("/usr/local/ict/HMI_TEST_LEVEL.txt", levelLines[level]);
    panel.powerOn(parser.value("agent-args").split(' ', Qt::SkipEmptyParts));
    printHowTo(panel, panel.readFile("/usr/local/ict/HMI_TEST_LEVEL.txt").startsWith("BI"));

    QObject::connect(&panel, &VirtualPanel::powered, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    if (interrupted())
        return 0;
    printf("The agent ended with status %d.\n%s", panel.waitForExit(0),
           panel.errorOutput().constData());
    return 1;
}
