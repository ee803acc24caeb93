#include "mainwindow.h"

#include "hwtest/clock.h"
#include "state/teststate.h"
#include "ui_mainwindow.h"

#include <QPalette>
#include <QProcess>

constexpr int LastWaitMs = 100; // for the root file system check when the agent ends

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui::MainWindow)
{
    if (g_uiTestMode != ModeICT) {
        writeRtc();
        PFVPMainWindow(parent);
    } else {
        ICTMainWindow(parent);
    }
}

static void dispose(QProcess *&process)
{
    if (!process)
        return;
    process->close();
    process->deleteLater();
    process = nullptr;
}

MainWindow::~MainWindow()
{
    delete ui;
    dispose(Process_WriteMac);
    if (Process_Chk_BB && Process_Chk_BB->state() == QProcess::Running)
        Process_Chk_BB->waitForFinished(LastWaitMs);
    dispose(Process_Chk_BB);
}

void MainWindow::paintEvent(QPaintEvent *event)
{
    if (g_uiTestMode != ModeICT)
        PFVPpaintEvent();
    else
        ICTpaintEvent(event);
}

void MainWindow::setBackground(const QColor &colour)
{
    QPalette colours = palette();
    colours.setColor(QPalette::Window, colour);
    setPalette(colours);
}
