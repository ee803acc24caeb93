#include "commands/commands.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"

#include <QGuiApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/resource.h>

namespace {

struct Command {
    const char *name, *help;
    int (*run)(const QStringList &args);
    bool draws = false; // texts, to recognise them on a screen
};
const Command commands[] = {
    {"produce", "take a factory-new virtual panel through its test levels", runProgram},
    {"panel", "start a virtual panel and leave it on", runPanel},
    {"fault", "list the faults, or switch them on a running panel", runRemote},
    {"power", "switch a running panel on or off", runRemote},
    {"touch", "touch the screen of a running panel", runRemote},
    {"look", "wait until a running panel's screen has a colour", runRemote},
    {"screenshot", "write a running panel's screen to a file", runRemote},
    {"station", "test panels at a serial port with the plan of a level", runProgram},
    {"units", "find tested units and their history, and the yield of a line", runProgram},
    {"bus", "start virtual panels at burn-in on one RS-485 bus", runBus},
    {"send", "send one request and decode the reply", runProgram},
    {"effects", "tell what requests do to a panel", runTraced},
    {"cuts", "cut the power at every moment, boot, and judge what is left", runTraced},
    {"drive", "act on a virtual panel as lines on standard input say", runDrive},
    {"soak", "kill panels in production, or ask them without end", runSoak},
    {"pfvp", "run a PFVP mode on two cabled virtual panels", runPfvp, true},
    {"board", "look at the drivers of the whole ARM machine, or cut its power", runProgram},
    {"measure", "measure speed and size of the agent", runMeasure},
};

int usage(FILE *out, int status)
{
    fputs("Usage: bench COMMAND [OPTION...]\nRuns the agent where there is no panel. Commands:\n",
          out);
    for (const Command &command : commands)
        fprintf(out, "  %-10s %s\n", command.name, command.help);
    fputs("`bench COMMAND --help` explains a command. With --arm it takes the ARM agent that "
          "tools/arm.sh\nhas built, in an emulator; with --board the whole ARM machine of "
          "tools/board.sh.\n",
          out);
    return status;
}

std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv)
{
    const Command *const end = std::end(commands);
    const bool draws = std::any_of(commands, end, [&](const Command &command) {
        return argc > 1 && command.draws && qstrcmp(argv[1], command.name) == 0;
    });
    if (!draws)
        return std::make_unique<QCoreApplication>(argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Without one the toolkit warns on every start that it has chosen a folder itself.
    static const QTemporaryDir runtime;
    if (!qEnvironmentVariableIsSet("XDG_RUNTIME_DIR"))
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    return std::make_unique<QGuiApplication>(argc, argv);
}

} // namespace

// A panel holds some twenty files open, and most limits are meant for programs with few.
static void raiseFileLimit()
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int main(int argc, char **argv)
{
    raiseFileLimit();
    // The parsers' help texts name the program by its first argument.
    std::string name = argc > 1 ? std::string("bench ") + argv[1] : "bench";
    argv[0] = name.data();
    const std::unique_ptr<QCoreApplication> app = makeApplication(argc, argv);
    setlocale(LC_NUMERIC, "C"); // the application has taken the user's
    app->setApplicationName("bench");
    app->setApplicationVersion(BENCH_VERSION);
    QStringList args = app->arguments().mid(1);
    if (args.removeAll("--arm"))
        useArmAgent();
    if (args.removeAll("--board"))
        useBoard();
    if (args.isEmpty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help")
        return usage(args.isEmpty() ? stderr : stdout, args.isEmpty() ? 2 : 0);
    if (args[0] == "--version") {
        puts("bench " BENCH_VERSION);
        return 0;
    }
    for (const Command &command : commands) {
        if (args[0] != command.name)
            continue;
        try {
            return command.run(args);
        } catch (const BenchError &error) {
            fprintf(stderr, "bench %s: %s\n", command.name, error.what());
            return interrupted() ? 1 : 2;
        }
    }
    fprintf(stderr, "bench: no command \"%s\"\n", qPrintable(args[0]));
    return usage(stderr, 2);
}
