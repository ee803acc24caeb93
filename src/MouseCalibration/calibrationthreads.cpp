// The way of "9000", "9004" and "9001" from request to reply, top to bottom.
#include "calibrationthreads.h"

#include "calibration.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "pointercal.h"
#include "state/itemrecord.h"

constexpr int CalibrateItem = 11; // of T1: "12.TP Calibrate Test"
constexpr int CheckItem = 10; // of T2: "11.TP Check Test"
constexpr unsigned long PollUs = 1000;

static void closeDialog(QPointer<Calibration> &dialog)
{
    if (!dialog)
        return;
    dialog->done(QDialog::Rejected);
    dialog->deleteLater();
    dialog.clear();
}

// Puts a new dialog in the place of `dialog`. The next dialog of a pass is opened from the end of
// the one before, so what is replaced may have callers on the stack: it is deleted later.
template <class Thread, class Slot>
static void openDialog(QPointer<Calibration> &dialog, Thread *thread, Slot workDone)
{
    closeDialog(dialog);
    dialog = new Calibration(qobject_cast<QWidget *>(thread->parent()));
    QObject::connect(dialog, &Calibration::workDone, thread, workDone);
    dialog->begin();
}

static QString touchedLines()
{
    QByteArray lines;
    for (int i = 0; i < TouchTargets; ++i)
        lines += touchedLine(ga_PointCalibrationCheck, i);
    return QString::fromLatin1(lines);
}

// Short: a reset thread has nothing left to do.
static void awaitEnd(const QThread &thread)
{
    while (thread.isRunning())
        QThread::usleep(PollUs);
}

// The reply goes out before the item is recorded.
static void reportPass(int item, bool passed, const char *passCode, const char *failCode)
{
    if (passed)
        setItem(item, ItemPassed);
    else
        beginTest(item); // which is how a failed item stands
    sendReply(passed ? passCode : failCode);
    recordItem(item);
    gb_ShowCalibrationPoint = true;
}

// --- "9000", "9004": calibration and check ------------------------------------------------------

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

TPCal_Thread::TPCal_Thread(bool checkAll, QWidget *window)
    : QThread(window)
    , m_checkAll(checkAll)
{
}

TPCal_Thread::~TPCal_Thread()
{
    reset(m_checkAll);
    wait();
}

void TPCal_Thread::reset(bool checkAll)
{
    closeDialog(m_calibration);
    closeDialog(m_check);
    m_checkAll = checkAll;
    m_result = false;
    m_text.clear();
    quit();
}

// Touches no state: all of it belongs to the GUI thread, which goes on from here. quit() ends the
// loop also when it comes first.
void TPCal_Thread::run()
{
    QMetaObject::invokeMethod(this, &TPCal_Thread::openCalibration, Qt::QueuedConnection);
    exec();
}

void TPCal_Thread::openCalibration()
{
    g_uiHMI_TEST_LEVEL = LevelT1;
    g_bCalibrationCheckAll = true;
    openDialog(m_calibration, this, &TPCal_Thread::sltCalWorkDone);
}

// The level of the whole program changes while the check is on screen: it selects the dispatcher's
// table and the rules of the check. "9000" comes at T1, which is what it goes back to.
void TPCal_Thread::sltCalWorkDone()
{
    m_text += touchedLines();
    g_uiHMI_TEST_LEVEL = LevelT1Check;
    g_bCalibrationCheckAll = m_checkAll;
    openDialog(m_check, this, &TPCal_Thread::sltChkWorkDone);
}

void TPCal_Thread::sltChkWorkDone()
{
    m_text += touchedLines();
    writeTouchValues(T1TouchValueFile, m_text.toLatin1());
    m_result = g_bCalibration_Result;
    // A check can pass on the old calibration when the touches before it allowed no new one.
    if (m_result && isFitted(cal))
        storeInBootLoader(bootLoaderLine(cal));
    g_uiHMI_TEST_LEVEL = LevelT1;
    emit CAL_CHK_Done(m_result);
    quit();
}

void MainWindow::slt_HMI_ICT_TP_CAL_CHK_Done(int result)
{
    if (m_calibrationThread->checkAll())
        reportPass(CalibrateItem, result, "9000", "90F0");
    else
        reportPass(CalibrateItem, result, "9004", "90F4");
    repaint();
}

// --- "9001": check alone ------------------------------------------------------------------------

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

TPChk_Thread::TPChk_Thread(QWidget *window)
    : QThread(window)
{
}

TPChk_Thread::~TPChk_Thread()
{
    reset();
    wait();
}

void TPChk_Thread::reset()
{
    closeDialog(m_check);
    m_result = false;
    m_text.clear();
    quit();
}

void TPChk_Thread::run()
{
    QMetaObject::invokeMethod(this, &TPChk_Thread::openCheck, Qt::QueuedConnection);
    exec();
}

// At the level the program is at: T2 has its own tolerance and leaves the file alone.
void TPChk_Thread::openCheck()
{
    g_bCalibrationCheckAll = true;
    openDialog(m_check, this, &TPChk_Thread::sltChkWorkDone);
}

void TPChk_Thread::sltChkWorkDone()
{
    m_text += touchedLines();
    writeTouchValues(T2TouchValueFile, m_text.toLatin1());
    m_result = g_bCalibration_Result;
    emit CHK_Done(m_result);
    quit();
}

void MainWindow::slt_HMI_ICT_TP_CHK_Done(int result)
{
    reportPass(CheckItem, result, "9001", "90F1");
    repaint();
}
