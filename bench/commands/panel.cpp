#include "commands/commandline.h"
#include "commands/commands.h"
#include "commands/livepanel.h"
#include "panel/control.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTcpServer>

#include <csignal>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

void printHowTo(VirtualPanel &panel)
{
    const QByteArray level = panel.readFile(VirtualPanel::levelFile).trimmed();
    const bool burnIn = panel.link() == Port::ttyO3;
    const QString link = panel.linkPath(panel.link());
    printf("The panel is on, its level file says %s.\n\n"
           "  PC link      %s   (%s)\n"
           "  VNC screen   127.0.0.1:%u   (this machine only)\n"
           "  folder       %s   (its files under root/, its output in agent.log,\n"
           "               its ports as ttyO1 and so on)\n\n",
           level.isEmpty() ? "nothing yet" : level.constData(), qPrintable(link),
           burnIn ? "9600 7E1, RS-485" : "9600 8E1, RTS/CTS", panel.vncPort(),
           qPrintable(panel.folder()));
    printf(
        "Attach\n"
        "  a terminal   socat STDIO %s,raw,echo=0,crnl\n"
        "  a station    let it open %s as its serial port\n"
        "  a viewer     vncviewer 127.0.0.1::%u\n"
        "  a script     bench power cycle, touch X Y, screenshot FILE, look red, fault set NAME\n"
        "               (with --panel %s where several run)\n\nOther ports:\n",
        qPrintable(link), qPrintable(link), panel.vncPort(), qPrintable(panel.folder()));
    for (int i = 0; i < portCount; ++i) {
        if (panel.linkPath(Port(i)) != link)
            printf("  %-10s   %s\n", portName(Port(i)), qPrintable(panel.linkPath(Port(i))));
    }
    printf("\nEnter cycles its power, Ctrl-C switches it off.\n");
    fflush(stdout);
}

PanelOptions optionsOf(const CommandLine &parser)
{
    PanelOptions options;
    options.folder = parser.value("folder");
    options.agent = parser.value("agent");
    options.vncPort = quint16(parser.number("vnc-port", 0, 65535));
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
    if (parser.isSet("level"))
        panel.setLevel(level.toUpper());
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
    for (const QString &fault : parser.values("fault"))
        fixture->setFault(fault);
    return fixture;
}

// The ports' outer ends by name, for scripts: FOLDER/ttyO1 is what FOLDER's panel calls so.
void linkPorts(const VirtualPanel &panel)
{
    for (int i = 0; i < portCount; ++i)
        QFile::link(panel.linkPath(Port(i)), panel.folder() + '/' + portName(Port(i)));
}

// Without the panel they may be anybody's terminals.
void unlinkPorts(const VirtualPanel &panel)
{
    for (int i = 0; i < portCount; ++i)
        QFile::remove(panel.folder() + '/' + portName(Port(i)));
}

// Serves the screen to web browsers of this machine; pages of other hosts are turned away.
void serveBrowsers(const VirtualPanel &panel, QProcess *server)
{
    const QString viewer = "/usr/share/novnc/", pages = panel.folder() + "/browser";
    if (QStandardPaths::findExecutable("websockify").isEmpty() || !QFileInfo::exists(viewer))
        throw BenchError("--browser needs two Debian packages: apt-get install "
                         "--no-install-recommends novnc websockify");
    QDir(pages).removeRecursively();
    QDir().mkpath(pages);
    QFile::link(dataFolder() + "/bench/browser/index.html", pages + "/index.html");
    for (const char *const part : {"core", "vendor"})
        QFile::link(viewer + part, pages + '/' + part);
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost); // a port that is free
    const QString address = QString("127.0.0.1:%1").arg(probe.serverPort());
    probe.close();
    server->setStandardOutputFile(QProcess::nullDevice());
    server->setStandardErrorFile(panel.folder() + "/browser.log");
    // It ends with this process, however that ends.
    server->start("setpriv",
                  {"--pdeathsig", "TERM", "websockify", "--web", pages, "--auth-plugin",
                   "ExpectOrigin", "--auth-source", "http://" + address, address,
                   QString("127.0.0.1:%1").arg(panel.vncPort())});
    printf("  web browser  http://%s\n\n", qPrintable(address));
    fflush(stdout);
}

// Until Ctrl-C or the agent's end. Enter cycles the power: a station that changes the level needs a
// hand at the switch.
void leaveOn(VirtualPanel &panel, LivePanel &live)
{
    // In the background reading fails, and does not stop the bench. A handler, for what is ignored
    // stays so in every program that is started.
    struct sigaction background = {};
    background.sa_handler = [](int) {};
    sigaction(SIGTTIN, &background, nullptr);
    QSocketNotifier enter(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&enter, &QSocketNotifier::activated, [&] {
        char line[256];
        if (::read(STDIN_FILENO, line, sizeof line) <= 0) {
            enter.setEnabled(false); // no terminal, or not ours now
            return;
        }
        try {
            live.obey("power", "cycle");
            printHowTo(panel);
        } catch (const BenchError &error) {
            fprintf(stderr, "%s\n", error.what());
        }
    });
    const auto off = QObject::connect(&panel, &VirtualPanel::powered, [&](bool on) {
        if (!on && !live.isSwitchedOff())
            QCoreApplication::quit();
    });
    QCoreApplication::exec();
    QObject::disconnect(off);
}

} // namespace

static CommandLine commandLine(const QStringList &args)
{
    return {
        args,
        "Starts a virtual panel and leaves it on until Ctrl-C, for any station software, terminal "
        "or\nVNC viewer of this machine. With --folder the panel keeps its files for the next "
        "time.",
        {{"folder", "The panel's persistent files (default: a temporary folder).", "path"},
         {"factory-new", "Empty the folder first."},
         {"level", "Start at this level: ict, t1, bi, t2, hmi.", "level"},
         {"vnc-port", "TCP port for viewers (default: a free one).", "port", "0"},
         {"browser", "Serve its screen to web browsers of this machine, with touch by mouse."},
         {"agent", "The agent's executable (default: this build's).", "path"},
         {"agent-args", "Arguments for the agent, for example PFVP_EMS.", "args"},
         {"fault", "Start with this fault (repeatable; see `bench fault list`).", "name"},
         {"traffic", "Show what goes over the serial ports, decoded, with times in seconds."},
         {"record", "Write what goes over the PC link as a plan for `bench station --plan`.",
          "file"},
         {"no-fixture", "Leave the other ports free: no probes on them, no media in the slots."}}};
}

int runPanel(const QStringList &args)
{
    const CommandLine parser = commandLine(args);
    setvbuf(stdout, nullptr, _IOFBF, BUFSIZ); // nothing comes between the lines of one text
    quitOnInterrupt();
    VirtualPanel panel(optionsOf(parser));
    unlinkPorts(panel); // of a bench that was killed
    const auto unlink = qScopeGuard([&] { unlinkPorts(panel); });
    prepare(panel, parser);
    const std::unique_ptr<Fixture> fixture = makeFixture(panel, parser);
    std::unique_ptr<Traffic> traffic;
    if (parser.isSet("traffic") || parser.isSet("record"))
        traffic = std::make_unique<Traffic>(panel, parser.isSet("traffic"), parser.value("record"));
    const QStringList agentArgs = parser.value("agent-args").split(' ', Qt::SkipEmptyParts);
    if (traffic && fixture) {
        for (const QString &fault : fixture->faults())
            traffic->note("fault set " + fault);
    }
    LivePanel live(panel, fixture.get(), traffic.get(), agentArgs);
    panel.powerOn(agentArgs);
    const PanelControl control(panel.folder(), [&](const QString &verb, const QString &argument) {
        return live.obey(verb, argument);
    });
    linkPorts(panel);
    printHowTo(panel);
    QProcess browsers;
    if (parser.isSet("browser"))
        serveBrowsers(panel, &browsers);
    leaveOn(panel, live);
    traffic.reset(); // all of it is there before what is said below
    browsers.terminate();
    browsers.waitForFinished();
    if (interrupted())
        return 0;
    printf("The agent ended with status %d.\n%s", panel.waitForExit(0),
           panel.errorOutput().constData());
    return 1;
}
