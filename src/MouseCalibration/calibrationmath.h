// The arithmetic of touch calibration and its check. Values only, no I/O.
//
// The pointer calibration is the linear format of tslib:
//   x = (c1 * raw_x + c2 * raw_y + c0) / c6,  y = (c4 * raw_x + c5 * raw_y + c3) / c6
#pragma once

#include "state/calibrationstate.h"

#include <QByteArray>
#include <array>

using Targets = std::array<QPoint, TouchTargets>;

// Whether a pass at `level` (TestLevel) produces a calibration, or judges one. At any other level
// a pass leaves no result.
bool isCalibrateLevel(quint32 level);
bool isCheckLevel(quint32 level);

// Pixels in x and y by which a touch may miss its target at `level`.
int checkTolerance(quint32 level);

// The least-squares fit over the record's five points, in single precision. False when the raw
// points are degenerate; the coefficients are all zero then. `determinant` is set in both cases.
bool fitCalibration(CalibrationRecord &record, float *determinant);

// Whether the coefficients come from a fit.
bool isFitted(const CalibrationRecord &record);

// The seven coefficients in the order of the pointer calibration file, blanks between, no line end.
QByteArray coefficientText(const CalibrationRecord &record);

// The same as an assignment of the boot loader's environment.
QByteArray bootLoaderLine(const CalibrationRecord &record);

// True up to and including a distance of `tolerance` in each coordinate.
bool isHit(const QPoint &touched, const QPoint &target, int tolerance);

// Whether target `index` counts: with `checkAll` false, targets 1 and 3 do not.
bool isJudged(int index, bool checkAll);

struct CheckVerdict {
    bool good; // every judged target was hit
    std::array<bool, TouchTargets> legal; // target i was hit, judged or not
};
CheckVerdict checkTouches(const QPoint (&touched)[TouchTargets], const Targets &targets,
                          int tolerance, bool checkAll);

// The line "(x,y)" with its line feed of a touched position; empty if `index` is no target's.
QByteArray touchedLine(const QPoint (&touched)[TouchTargets], int index);

// The mean, cut toward zero. Fed with sample after sample it halves the weight of all before.
qint32 halfway(qint32 before, qint32 sample);
QPoint halfway(const QPoint &before, const QPoint &sample);
