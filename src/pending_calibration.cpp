#include "MouseCalibration/calibrationmode.h"
#include "mainwindow.h"
int runCalibrationMode()
{
    return -1;
}
void MainWindow::slt_HMI_ICT_TP_CAL_CHK_Done(int) { }
void MainWindow::slt_HMI_ICT_TP_CHK_Done(int) { }
void MainWindow::startCalibration(int) { }
void MainWindow::startCalibrationCheck() { }
