// A text on either screen.
#pragma once

#include <QPainter>

// Draws `text` in the painter's font; `at` is the left end of its base line.
inline void drawText(QPainter &painter, const QPoint &at, const QColor &pen, const QString &text)
{
    painter.setPen(pen);
    painter.drawText(at, text);
}
