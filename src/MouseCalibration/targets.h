// Where the touch targets stand on the screen, in pixels and in touching order: the four corners
// clockwise from top left, then the centre. Values only, no I/O.
#pragma once

#include "state/runstate.h"

#include <QPoint>
#include <QSize>
#include <array>

constexpr int CalibrationMargin = 100; // of the corner targets from the edges
constexpr int CheckMargin = 50;
constexpr int AppCheckMargin = 100;

inline std::array<QPoint, 5> targetsWithMargin(QSize screen, int margin)
{
    const int right = screen.width() - margin;
    const int bottom = screen.height() - margin;
    return {QPoint(margin, margin), QPoint(right, margin), QPoint(right, bottom),
            QPoint(margin, bottom), QPoint(screen.width() / 2, screen.height() / 2)};
}

// The targets whose raw values the fit is made from.
inline std::array<QPoint, 5> calibrationTargets(QSize screen)
{
    return targetsWithMargin(screen, CalibrationMargin);
}

// The targets a calibration is checked with at `level` (TestLevel).
inline std::array<QPoint, 5> checkTargets(QSize screen, quint32 level)
{
    return targetsWithMargin(screen, level == LevelAppCheck ? AppCheckMargin : CheckMargin);
}
