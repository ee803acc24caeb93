// The size of the panel's screen.
#pragma once

#include <QSize>

// In pixels. Without a screen, as on a board whose framebuffer driver failed, that of the panel's
// own LCD: the station still wants its answers.
QSize screenSize();
