// The operator's buttons of the PFVP window, as a table.
#pragma once

#include <QtGlobal>

class MainWindow;

enum PfvpButtonId {
    EmsStartButton,
    EmiStartButton,
    EmsEmiResetButton,
    EmsEmiBackButton,
    RdAutoButton,
    RdManualButton,
    RdResetButton,
    RdBackButton,
    RdPassButton,
    RdFailButton,
    SlaveStartButton,
    SlaveGotoT1Button,
    PfvpButtonCount
};

// Which window a button belongs to. EMS and EMI share one.
enum class PfvpWindow { EmsEmi, Rd, Slave };

struct PfvpButton {
    PfvpButtonId id;
    PfvpWindow window;
    const char *text;
    int x, y, width, height; // pixels of the window
    void (MainWindow::*released)();
    bool shown; // from the start

    static const PfvpButton all[PfvpButtonCount];
};

struct PfvpLabel {
    PfvpButtonId button;
    const char *text;
};

// Texts that buttons return to. "Manua Start" is misspelled on purpose: the operators' instructions
// show it so.
constexpr char EmsStartText[] = "EMS Start Test";
constexpr char EmiStartText[] = "EMI Start Test";
constexpr char AutoStartText[] = "Auto Start";
constexpr char ManualStartText[] = "Manua Start";
constexpr char ResetText[] = "Reset Test";
constexpr char ResetArmedText[] = "Sure!! Reset";
constexpr char EndText[] = "END Test";
