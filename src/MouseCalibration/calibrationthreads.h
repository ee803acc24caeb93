// The passes that the station asks for: "9000" and "9004" calibrate and check, "9001" checks.
//
// Each pass is owned by the run() of a thread object, but its dialogs live on the GUI thread, as
// widgets must: run() asks for the first one and returns when the pass is over. The objects
// themselves belong to the GUI thread; everything but run() is called there and nothing waits. In
// particular the slots open a dialog and return, where a modal loop would do for the user: they run
// below the dispatcher's tick, and the timer does not fire again while its slot is on the stack, so
// a loop in there would silence the PC link.
#pragma once

#include <QPointer>
#include <QThread>

class Calibration;

class TPCal_Thread : public QThread {
    Q_OBJECT

public:
    // `window` becomes the parent of the thread and of its dialogs.
    TPCal_Thread(bool checkAll, QWidget *window);
    ~TPCal_Thread() override;

    // Closes the dialogs, forgets the results and lets run() return, which it does without any
    // help of the GUI thread: the caller may wait for it there.
    void reset(bool checkAll);

    // Whether the check judges all five targets ("9000") or leaves 1 and 3 out ("9004").
    bool checkAll() const
    {
        return m_checkAll;
    }

signals:
    // Once for each start() that was not reset: 1 when the check passed.
    void CAL_CHK_Done(int result);

public slots:
    void sltCalWorkDone();
    void sltChkWorkDone();

protected:
    void run() override;

private:
    void openCalibration();

    bool m_checkAll;
    bool m_result = false;
    QString m_text; // touched positions, a line each
    QPointer<Calibration> m_calibration, m_check; // children of the window
};

class TPChk_Thread : public QThread {
    Q_OBJECT

public:
    explicit TPChk_Thread(QWidget *window);
    ~TPChk_Thread() override;

    void reset(); // as above

signals:
    void CHK_Done(int result); // as above

public slots:
    void sltChkWorkDone();

protected:
    void run() override;

private:
    void openCheck();

    bool m_result = false;
    QString m_text;
    QPointer<Calibration> m_check; // child of the window
};
