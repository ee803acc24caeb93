// The agent's one window. Its members are the slots of the screen and the handlers of the link's
// commands; they are implemented in the rooms: ict/, hwtest/, screen/, pfvp/, MouseCalibration/
// and export/. Handlers end in a reply on the PC link and never throw.
#pragma once

#include "pfvp/pfvpbuttons.h"
#include "state/screenstate.h"

#include <QMainWindow>
#include <QPoint>
#include <initializer_list>

class QPushButton;
class TPCal_Thread;
class TPChk_Thread;

namespace Ui {
class MainWindow;
}

// Arguments of sendIdentityText().
enum IdentityText { IdentityVersion, IdentityCrc, IdentityModel, IdentityToolVersion };

// Arguments of measureBattery(): whether BI judges the value or only reports it.
enum BatteryReply { BatteryJudgedAtBi, BatteryReported };

// Arguments of exportLog(): source in the high digit, target in the low one, as in the codes.
enum ExportRoute {
    ExportPartitionToUsb = 0x00,
    ExportPartitionToSd = 0x01,
    ExportFolderToUsb = 0x10,
    ExportFolderToSd = 0x11
};

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // Boots the mode that g_uiTestMode names; blocks while it does.
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QPoint m_touchPoints[5]; // painted while g_showAllTPCalPoints is set
    Ui::MainWindow *ui; // owned

    // The PFVP operator's buttons, children of the window; null in the modes without them.
    QPushButton *m_pfvpButtons[PfvpButtonCount] = {};

    // Touch calibration, made on first use and reused.
    TPCal_Thread *m_calibrationThread = nullptr;
    TPChk_Thread *m_checkThread = nullptr;

private slots:
    void ICTTestLoop();
    void PFVPTestLoop();
    void ICT_LCD_SHOW_RED();
    void ICT_LCD_SHOW_GREEN();
    void ICT_LCD_SHOW_BLUE();
    void LCD_SHOW_RED();
    void LCD_SHOW_GREEN();
    void LCD_SHOW_BLUE();
    void LCD_SHOW_RGB();
    void LCD_SHOW_COLOR_RGB1();
    void LCD_SHOW_COLOR_RGB2();
    void LCD_SHOW_SPECIFIC_COLOR();
    void PFVP_LCD_SHOW_RED();
    void PFVP_LCD_SHOW_GREEN();
    void PFVP_LCD_SHOW_BLUE();
    void HMI_ICT_GET_TPS_XY();
    void HMI_ICT_TEST_LCM_BL(int iPercentage);
    void PFVP_LCM_BL();
    void PFVP_TP_TEST();
    void ICTMainWindow(QWidget *parent);
    void ICTpaintEvent(QPaintEvent *event);
    void PFVPMainWindow(QWidget *parent);
    void PFVPpaintEvent();
    void StartSlaveModeButton();
    void GotoT1Button();
    void EMSStartStopButton();
    void EMIStartStopButton();
    void ResetButton();
    void BackButton();
    void RDAutoStartStopButton();
    void RDManualStartStopButton();
    void RDResetButton();
    void RDBackButton();
    void RDManualPASSButton();
    void RDManualFAILButton();
    void slt_HMI_ICT_TP_CAL_CHK_Done(int result);
    void slt_HMI_ICT_TP_CHK_Done(int result);

public: // command handlers, named in the command tables
    // ict/
    void levelEndCheck(int item);
    void receiveForcedChange();

    // hwtest/serialloopback
    void testAllPorts();
    void testCom1Rs485();
    void testCom2();
    // hwtest/display
    void testLcmCircuit(int mode);
    // hwtest/touch, hwtest/buzzer
    void testTouchPressure();
    void sendT1TouchValue(int index);
    void sendLevelTouchValue(int index);
    void showTouchPoints();
    void testBuzzerSound();
    void testBuzzerSilent();
    // hwtest/clock
    void testRtc();
    void setClock();
    void compareClock();
    // hwtest/storage, hwtest/battery, hwtest/identitytexts
    void confirmPresence();
    void testDdr();
    void reportRootfsCheck();
    void measureBattery(int reply);
    void testUsbStorage();
    void sendIdentityText(int which);
    // hwtest/identity
    void assignStation();
    void storeMachineId();
    void storeSemiMachineId();
    void verifySemiMachineId();
    void readBackMachineId();
    void readBackSemiMachineId();
    // MouseCalibration/
    void startCalibration(int checkAll);
    void startCalibrationCheck();
    // export/
    void exportLog(int route);
    void switchUsbMode(int argument);

private:
    // Palette role "window" of this window.
    void setBackground(const QColor &colour);

    // hwtest/: fills the window with one colour in place of the information screen, at the next
    // paint.
    void showColour(const QColor &colour);

    // ict/
    void makeScreen();
    void leavePattern();

    // screen/
    void paintPattern(QPainter &painter) const;

    // pfvp/
    struct StartStop;
    struct ManualStep;
    static constexpr int ManualStepCount = 6;
    static const ManualStep manualSteps[ManualStepCount];
    void createPfvpButtons();
    void showButtons(std::initializer_list<PfvpButtonId> buttons, bool shown);
    void labelButtons(std::initializer_list<PfvpLabel> labels);
    void startStop(const StartStop &cycle);
    void enterManualStep(const ManualStep &step);
    void judgeManualStep(qint32 *counts);
    void fillScreen(BackgroundColour colour); // in place of the tables
    void soundPfvpBuzzer();

    friend struct CommandTables;
    friend struct PfvpButton;
};
