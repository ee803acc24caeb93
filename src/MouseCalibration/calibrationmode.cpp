#include "calibrationmode.h"

#include "calibration.h"
#include "pointercal.h"

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
    runDialog(LevelAppCalibrate);
    // With touches that allow no fit there is nothing to check, and nothing to store.
    if (!isFitted(cal))
        return -1;
    g_bCalibrationCheckAll = false;
    runDialog(LevelAppCheck);
    if (!g_bCalibration_Result)
        return -1;
    storeInBootLoader(bootLoaderLine(cal));
    return 0;
}
