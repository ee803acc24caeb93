#include "mainwindow.h"
void MainWindow::PFVPTestLoop() { }
void MainWindow::PFVP_LCD_SHOW_RED() { }
void MainWindow::PFVP_LCD_SHOW_GREEN() { }
void MainWindow::PFVP_LCD_SHOW_BLUE() { }
void MainWindow::PFVP_LCM_BL() { }
void MainWindow::PFVP_TP_TEST() { }
void MainWindow::PFVPMainWindow(QWidget *) { }
void MainWindow::PFVPpaintEvent() { }
void MainWindow::StartSlaveModeButton() { }
void MainWindow::EMSStartStopButton() { }
void MainWindow::EMIStartStopButton() { }
void MainWindow::ResetButton() { }
void MainWindow::BackButton() { }
void MainWindow::RDAutoStartStopButton() { }
void MainWindow::RDManualStartStopButton() { }
void MainWindow::RDResetButton() { }
void MainWindow::RDBackButton() { }
void MainWindow::RDManualPASSButton() { }
void MainWindow::RDManualFAILButton() { }
