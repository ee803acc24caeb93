#include <QApplication>
#include <QMouseEvent>
#include <QWidget>

#include <cstdio>

// An empty window: what the toolkit alone costs on the panel, for comparison with the agent. Says
// where it is touched, which costs nothing until then.
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

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    EmptyWindow window;
    window.showFullScreen();
    return app.exec();
}
