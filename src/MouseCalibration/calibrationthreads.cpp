#include "calibrationthreads.h"

#include "calibration.h"
#include "pointercal.h"

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

// --- Calibration and check ----------------------------------------------------------------------

TPCal_Thread::TPCal_Thread(bool checkAll, QWidget *window)
    : QThread(window)
    , m_checkAll(checkAll)
{
    connect(this, &TPCal_Thread::passStarted, this, &TPCal_Thread::calibrate);
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

// Touches no state: all of it belongs to the GUI thread, where calibrate() goes on. quit() ends the
// loop also when it comes first.
void TPCal_Thread::run()
{
    emit passStarted();
    exec();
}

void TPCal_Thread::calibrate()
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

// --- Check alone --------------------------------------------------------------------------------

TPChk_Thread::TPChk_Thread(QWidget *window)
    : QThread(window)
{
    connect(this, &TPChk_Thread::passStarted, this, &TPChk_Thread::check);
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
    emit passStarted();
    exec();
}

// At the level the program is at: T2 has its own tolerance and leaves the file alone.
void TPChk_Thread::check()
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
