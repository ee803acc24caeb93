#include <QApplication>
#include <QMouseEvent>
#include <QProcess>
#include <QWidget>

#include <cstdio>
#include <cstdlib>

// An empty window: what the toolkit alone costs on the panel, for comparison with the agent. With
// arguments it runs those commands first: what a boot's scripts cost a program of this toolkit.
// Says where it is touched, which costs nothing until then.
class EmptyWindow : public QWidget {
protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        say("press", event);
    }
    void mouseMoveEvent(QMouseEvent *event) override
    {
        say("move", event);
    }
    void mouseReleaseEvent(QMouseEvent *event) override
    {
        say("release", event);
    }

private:
    static void say(const char *what, const QMouseEvent *event)
    {
        printf("%s %d,%d\n", what, event->pos().x(), event->pos().y());
        fflush(stdout);
    }
};

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

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    for (const QString &command : app.arguments().mid(1))
        runCommand(command);
    EmptyWindow window;
    window.showFullScreen();
    return app.exec();
}
