#include "commands/commands.h"
#include "panel/bencherror.h"
#include "panel/control.h"

#include <QCommandLineParser>
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
     "Waits until the screen of a running `bench panel` looks so, for 5 s."},
    {"screenshot", "FILE",
     "Writes the screen of a running `bench panel` to a PNG file, once it has come to rest."},
};

} // namespace

int runRemote(const QStringList &args)
{
    const Verb *verb = verbs;
    while (args[0] != verb->name) {
        ++verb;
    }
    QCommandLineParser parser;
    parser.setApplicationDescription(verb->help);
    parser.addHelpOption();
    parser.addOption(PanelControl::option());
    parser.addPositionalArgument("what", verb->argument, verb->argument);
    parser.process(args);
    QString what = parser.positionalArguments().join(' ');
    if (what.isEmpty()) {
        throw BenchError(QString("it needs %1").arg(verb->argument));
    }
    if (args[0] == "screenshot") {
        what = QFileInfo(what).absoluteFilePath(); // the panel's bench has a folder of its own
    }
    PanelControl::send(parser.value("panel"), args[0] + ' ' + what);
    return 0;
}
