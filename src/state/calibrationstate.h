// Touch calibration: the points of a pass and what came of them.
#pragma once

#include <QPoint>
#include <QString>

constexpr int TouchTargets = 5;

struct CalibrationRecord {
    qint32 raw_x[TouchTargets], screen_x[TouchTargets]; // of target i: ADC value, pixel
    qint32 raw_y[TouchTargets], screen_y[TouchTargets];
    qint32 coeff[7]; // c0 to c6 of the last fit; all zero while there is none
};
static_assert(sizeof(CalibrationRecord) == 27 * sizeof(qint32));

extern CalibrationRecord cal; // points and result of the calibration pass
extern QPoint ga_PointCalibrationCheck[TouchTargets]; // pixel touched at target i in this pass
extern bool g_bCalibrationCheckAll; // false: targets 1 and 3 are neither shown nor judged
extern bool g_bCalibration_Result; // verdict of the last calibration or check
extern bool g_bCalibration_Legal[TouchTargets]; // target i was hit within the tolerance
extern QString qs_PressingPoint[TouchTargets]; // a line a target for the ICT screen
