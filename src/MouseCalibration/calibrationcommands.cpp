// The handlers of the touch calibration commands and of their results.
#include "calibrationthreads.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "pointercal.h"
#include "state/itemrecord.h"

constexpr int CalibrateItem = 11; // of T1: "12.TP Calibrate Test"
constexpr int CheckItem = 10; // of T2: "11.TP Check Test"
constexpr unsigned long PollUs = 1000;

// Short: a reset thread has nothing left to do.
static void awaitEnd(const QThread &thread)
{
    while (thread.isRunning())
        QThread::usleep(PollUs);
}

void MainWindow::startCalibration(int checkAll)
{
    startFromLastGood();
    if (m_calibrationThread) {
        disconnect(m_calibrationThread, &TPCal_Thread::CAL_CHK_Done, nullptr, nullptr);
        m_calibrationThread->reset(checkAll);
        awaitEnd(*m_calibrationThread);
    } else {
        m_calibrationThread = new TPCal_Thread(checkAll, this);
    }
    connect(m_calibrationThread, &TPCal_Thread::CAL_CHK_Done, this,
            &MainWindow::slt_HMI_ICT_TP_CAL_CHK_Done);
    m_calibrationThread->start(QThread::InheritPriority);
}

void MainWindow::startCalibrationCheck()
{
    if (m_checkThread) {
        disconnect(m_checkThread, &TPChk_Thread::CHK_Done, nullptr, nullptr);
        m_checkThread->reset();
        awaitEnd(*m_checkThread);
    } else {
        m_checkThread = new TPChk_Thread(this);
    }
    connect(m_checkThread, &TPChk_Thread::CHK_Done, this, &MainWindow::slt_HMI_ICT_TP_CHK_Done);
    m_checkThread->start(QThread::InheritPriority);
}

// The order is the station's: the reply goes out before the item is recorded.
static void reportPass(int item, bool passed, const char *passCode, const char *failCode)
{
    setItem(item, passed ? ItemPassed : ItemRunning);
    sendReply(passed ? passCode : failCode);
    recordItem(item);
    gb_ShowCalibrationPoint = true;
}

void MainWindow::slt_HMI_ICT_TP_CAL_CHK_Done(int result)
{
    if (m_calibrationThread->checkAll())
        reportPass(CalibrateItem, result, "9000", "90F0");
    else
        reportPass(CalibrateItem, result, "9004", "90F4");
    repaint();
}

void MainWindow::slt_HMI_ICT_TP_CHK_Done(int result)
{
    reportPass(CheckItem, result, "9001", "90F1");
    repaint();
}
