#include "calibrationmode.h"

#include "calibration.h"
#include "pointercal.h"

#include <QGuiApplication>
#include <cstdio>

static void runDialog(TestLevel level)
{
    g_uiHMI_TEST_LEVEL = level;
    Calibration dialog;
    dialog.showFullScreen();
    dialog.exec();
    dialog.close();
}

int runCalibrationMode()
{
    if (!QGuiApplication::primaryScreen()) { // where the toolkit would end the program
        printf("Touch calibration failed: there is no screen\n");
        return -1;
    }
    runDialog(LevelAppCalibrate);
    g_bCalibrationCheckAll = false;
    runDialog(LevelAppCheck);
    // A check can pass on the calibration that was there, after touches that allowed no new one.
    if (!g_bCalibration_Result || !isFitted(cal))
        return -1;
    storeInBootLoader(bootLoaderLine(cal));
    return 0;
}
