// The run mode that calibrates the touch panel for the product application.
#pragma once

// Calibrates, checks, and on success hands the coefficients to the boot loader. The exit status of
// the program: 0, or -1 when the calibration or its check failed, or where there is no screen to
// touch; the boot loader's copy is untouched then.
int runCalibrationMode();
