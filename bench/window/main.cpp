#include <QApplication>
#include <QWidget>

// An empty window: what the toolkit alone costs on the panel, for comparison with the agent.
int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.showFullScreen();
    return app.exec();
}
