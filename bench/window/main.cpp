#include <QApplication>
#include <QProcess>
#include <QWidget>

#include <cstdio>
#include <cstdlib>

// One of a boot's commands, in the way the agent runs it: "$..." through the shell, "&..." started
// only, anything else as a process that is waited for, its words a line each.
static void runCommand(const QString &command)
{
    if (command.startsWith('$')) {
        if (system(qPrintable(command.mid(1))) != 0)
            fprintf(stderr, "failed: %s\n", qPrintable(command));
        return;
    }
    const bool waited = !command.startsWith('&');
    QStringList words = command.mid(waited ? 0 : 1).split('\n');
    const QString program = words.takeFirst();
    if (!waited) {
        QProcess::startDetached(program, words);
        return;
    }
    QProcess process;
    process.start(program, words);
    process.waitForFinished(-1);
}

// An empty window: what the toolkit alone costs on the panel, for comparison with the agent. With
// arguments it runs those commands first: what a boot's scripts cost a program of this toolkit.
int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    for (const QString &command : app.arguments().mid(1))
        runCommand(command);
    QWidget window;
    window.showFullScreen();
    return app.exec();
}
