#pragma once

#include "itemnames.h"
#include "panel/panelharness.h"

#include <QPainter>

// A screen as it must be, drawn by the toolkit itself.
class Expected {
public:
    explicit Expected(const QColor &ground = Qt::white)
    {
        constexpr int screenDpi = 60; // of the toolkit's VNC screen
        image_.setDotsPerMeterX(qRound(screenDpi / 0.0254));
        image_.setDotsPerMeterY(image_.dotsPerMeterX());
        image_.fill(ground);
    }
    // From the left end of the base line; `left` is the part of the text that is left of `x`.
    Expected &text(int x, int y, const QString &text, int points, const QColor &pen,
                   double left = 0)
    {
        QPainter painter(&image_);
        painter.setFont(QFont("Ubuntu", points));
        painter.setPen(pen);
        painter.drawText(x - int(painter.fontMetrics().horizontalAdvance(text) * left), y, text);
        return *this;
    }
    // Results one character an item: blue if passed, red while running and failed, black if not
    // run since the boot.
    Expected &items(const QStringList &names, const QByteArray &results)
    {
        for (int i = 0; i < results.size(); ++i) {
            const bool passed = results[i] == '1';
            text(40, 60 + 18 * i, names[i] + (passed ? ": 1" : ": 0"), 14,
                 passed                  ? Qt::blue
                     : results[i] == 'F' ? Qt::red
                                         : Qt::black);
        }
        return *this;
    }
    Expected &traffic(const QString &received, const QString &returned)
    {
        return text(300, 100, "[HMI Receive Data]", 20, Qt::magenta)
            .text(300, 150, received, 20, Qt::magenta)
            .text(300, 220, "[Return PC Data]", 20, Qt::blue)
            .text(300, 270, returned, 20, Qt::blue);
    }
    Expected &fill(int x, int y, int width, int height, const QColor &colour)
    {
        QPainter(&image_).fillRect(x, y, width, height, colour);
        return *this;
    }
    Expected &corners()
    {
        for (const QPoint &at : {QPoint(8, 8), QPoint(760, 440)})
            fill(at.x(), at.y(), 32, 32, Qt::black)
                .fill(at.x() + 14, at.y() + 8, 4, 16, Qt::white)
                .fill(at.x() + 8, at.y() + 14, 16, 4, Qt::white);
        return *this;
    }
    // 16 x 4 and 4 x 16 pixels.
    Expected &cross(const QPoint &at, const QColor &colour)
    {
        return fill(at.x() - 8, at.y() - 2, 16, 4, colour)
            .fill(at.x() - 2, at.y() - 8, 4, 16, colour);
    }
    // Whether the panel comes to show it.
    bool isShown(VirtualPanel &panel) const
    {
        return waitFor([&] { return difference(panel) == 0; }, DeadlineMs);
    }
    // Pixels that differ by more than the toolkit's cache of glyphs makes them.
    int difference(VirtualPanel &panel) const
    {
        const QImage screen = panel.screen().grab();
        int count = 0;
        for (int y = 0; y < image_.height(); ++y) {
            for (int x = 0; x < image_.width(); ++x) {
                const QColor a = image_.pixelColor(x, y), b = colourAt(screen, x, y);
                count += qMax(qAbs(a.red() - b.red()),
                              qMax(qAbs(a.green() - b.green()), qAbs(a.blue() - b.blue())))
                    > 16;
            }
        }
        return count;
    }

private:
    QImage image_{800, 480, QImage::Format_RGB32};
};
