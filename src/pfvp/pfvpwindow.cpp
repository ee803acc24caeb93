// The PFVP window: preparing the panel for a peer on the other end of its cables, and the buttons
// of the mode. Nothing runs until an operator presses one.
#include "link/serialports.h"
#include "mainwindow.h"
#include "state/teststate.h"
#include "system/command.h"

#include <QPushButton>
#include <QThread>
#include <QTimer>

constexpr int DriverSettleS = 1; // until the USB devices of a loaded driver are there
constexpr int NetworkSettleS = 3;
constexpr int CycleTickMs = 10000;
constexpr int SlaveTickMs = 100;

const PfvpButton PfvpButton::all[PfvpButtonCount] = {
    {EmsStartButton, PfvpWindow::EmsEmi, EmsStartText, 400, 290, 190, 80,
     &MainWindow::EMSStartStopButton, true},
    {EmiStartButton, PfvpWindow::EmsEmi, EmiStartText, 400, 380, 190, 80,
     &MainWindow::EMIStartStopButton, true},
    {EmsEmiResetButton, PfvpWindow::EmsEmi, ResetText, 600, 290, 190, 80, &MainWindow::ResetButton,
     true},
    {EmsEmiBackButton, PfvpWindow::EmsEmi, EndText, 600, 380, 190, 80, &MainWindow::BackButton,
     true},
    {RdAutoButton, PfvpWindow::Rd, AutoStartText, 300, 400, 120, 75,
     &MainWindow::RDAutoStartStopButton, true},
    {RdManualButton, PfvpWindow::Rd, ManualStartText, 425, 400, 120, 75,
     &MainWindow::RDManualStartStopButton, true},
    {RdResetButton, PfvpWindow::Rd, ResetText, 550, 400, 120, 75, &MainWindow::RDResetButton, true},
    {RdBackButton, PfvpWindow::Rd, EndText, 675, 400, 120, 75, &MainWindow::RDBackButton, true},
    {RdPassButton, PfvpWindow::Rd, "PASS", 470, 280, 140, 80, &MainWindow::RDManualPASSButton,
     false},
    {RdFailButton, PfvpWindow::Rd, "FAIL", 615, 280, 140, 80, &MainWindow::RDManualFAILButton,
     false},
    {SlaveStartButton, PfvpWindow::Slave, "StartSlaveMode", 370, 380, 180, 80,
     &MainWindow::StartSlaveModeButton, true},
    {SlaveGotoT1Button, PfvpWindow::Slave, "GotoT1", 575, 380, 180, 80, &MainWindow::GotoT1Button,
     true},
};

static PfvpWindow windowOfMode()
{
    switch (g_uiTestMode) {
    case ModeSlave:
        return PfvpWindow::Slave;
    case ModeRD:
        return PfvpWindow::Rd;
    default:
        return PfvpWindow::EmsEmi;
    }
}

// The USB host port of one panel is cabled to the gadget port of the other.
static void openPorts()
{
    openCom1(ComRS232);
    openCom1(ComRS485);
    openCom2(ComRS485);
    runProcess(QStringLiteral("modprobe g_serial idVendor=0x1A2B idProduct=0x0100"));
    runProcess(QStringLiteral("modprobe usbserial vendor=0x1A2B product=0x0100"));
    QThread::sleep(DriverSettleS);
    openUsbHost();
    openUsbGadget();
}

// The two panels of a pair have fixed addresses of their own.
static void prepareMode()
{
    if (g_uiTestMode == ModeSlave) {
        g_bSlaveModeAllow = g_bGotoT1ModeAllow = false;
        runProcess(QStringLiteral("ifconfig eth0 192.168.123.111 netmask 255.255.255.0 up"));
    } else {
        g_bEMSTestAllow = g_bEMITestAllow = false;
        runProcess(QStringLiteral("ifconfig eth0 192.168.123.102 netmask 255.255.255.0 up"));
    }
    QThread::sleep(NetworkSettleS);
}

void MainWindow::createPfvpButtons()
{
    const PfvpWindow window = windowOfMode();
    for (const PfvpButton &row : PfvpButton::all) {
        if (row.window != window)
            continue;
        auto *button = new QPushButton(QLatin1String(row.text), this);
        button->setGeometry(row.x, row.y, row.width, row.height);
        button->setVisible(row.shown);
        connect(button, &QPushButton::released, this, row.released);
        m_pfvpButtons[row.id] = button;
    }
}

void MainWindow::PFVPMainWindow(QWidget *)
{
    resize(Screen_X, Screen_Y);
    makeColours();
    makePaintFonts();
    setBackground(m_aclrBG[BgWhite]);
    openPorts();
    prepareMode();
    createPfvpButtons();

    m_hTimer = new QTimer(this);
    connect(m_hTimer, &QTimer::timeout, this, &MainWindow::PFVPTestLoop);
    m_hTimer->start(g_uiTestMode == ModeSlave ? SlaveTickMs : CycleTickMs);
}
