#include "screensize.h"

#include "state/screenstate.h"

#include <QGuiApplication>
#include <QScreen>

QSize screenSize()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->size() : QSize(Screen_X, Screen_Y);
}
