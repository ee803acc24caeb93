// Handlers whose rooms are still being built; each goes with its room.
#include "mainwindow.h"
void MainWindow::assignStation() { }
void MainWindow::storeMachineId() { }
void MainWindow::storeSemiMachineId() { }
void MainWindow::verifySemiMachineId() { }
void MainWindow::readBackMachineId() { }
void MainWindow::readBackSemiMachineId() { }
void MainWindow::exportLog(int) { }
void MainWindow::switchUsbMode(int) { }
