// The touch panel: position, pressure at rest, the positions that calibration and check recorded,
// the check targets.
#include "MouseCalibration/pointercal.h"
#include "MouseCalibration/targets.h"
#include "link/factorylog.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "state/itemrecord.h"
#include "system/command.h"
#include "system/screensize.h"

#include <QFile>

constexpr int PositionItem = 10;
constexpr ItemIndex PressureItem = {-1, 17, 3, 15};

constexpr int PositionLimitMs = 30000;
constexpr int RawBits = 12;
constexpr int PositionTextLength = 11; // "(%4d,%4d)"

constexpr int ValuesOfPass = 5; // a line a target
constexpr int CheckValuesAtT1 = 5; // its file holds those of the calibration pass first

// --- Position -----------------------------------------------------------------------------------

static int screenCoordinate(const QString &readRaw, int extent)
{
    return int((qint64(numberFrom(readRaw, PositionLimitMs)) * extent) >> RawBits);
}

void MainWindow::HMI_ICT_GET_TPS_XY()
{
    beginTest(PositionItem);
    const QSize screen = screenSize();
    const int x = screenCoordinate(QStringLiteral("cat /sys/class/input/input0/device/ADC_X"),
                                   screen.width());
    const int y = screenCoordinate(QStringLiteral("cat /sys/class/input/input0/device/ADC_Y"),
                                   screen.height());
    // 13 bytes in all, whatever the driver said.
    const QByteArray text = QString::asprintf("(%4d,%4d)", x, y).toLatin1();
    sendRaw(text.left(PositionTextLength) + "\r\n");
    setAndRecordItem(PositionItem, ItemPassed);
    factoryLog(nullptr);
}

// --- Pressure -----------------------------------------------------------------------------------

void MainWindow::testTouchPressure()
{
    const int item = PressureItem.atLevel();
    if (item < 0)
        return;
    beginTest(item);
    const int pressure =
        numberFrom(QStringLiteral("cat /sys/class/input/input0/device/Warden_ADC_Z"));
    qs_TP_HMI = QString::asprintf("TP_Pressure : %d", pressure);
    if (pressure == 0) {
        sendReply("9003");
        setAndRecordItem(item, ItemPassed);
    } else {
        sendReply("90F3");
    }
    gb_ShowTPInfo = true;
}

// --- Recorded positions -------------------------------------------------------------------------

// Sends line `line` of `path` as it stands, if the file has `needed` parts between its line feeds.
// With fewer nothing is sent, not even a failure: the station takes its time-out for "no values".
// A file that is missing is answered `failure`, with the number of the value as its last digit.
static void sendValue(const char *path, int line, int needed, const char *failure, int index)
{
    QFile file(QString::fromLatin1(path));
    if (!file.exists()) {
        sendReply(failure + QByteArray::number(index + 1));
        return;
    }
    file.open(QIODevice::ReadOnly);
    const QList<QByteArray> lines = file.readAll().split('\n');
    if (lines.size() >= needed)
        sendRaw(lines[line] + "\r\n");
}

void MainWindow::sendT1TouchValue(int index)
{
    sendValue(T1TouchValueFile, index, ValuesOfPass, "9FF", index);
}

void MainWindow::sendLevelTouchValue(int index)
{
    const bool atT1 = g_uiHMI_TEST_LEVEL == LevelT1;
    const int offset = atT1 ? CheckValuesAtT1 : 0;
    sendValue(atT1 ? T1TouchValueFile : T2TouchValueFile, offset + index, offset + ValuesOfPass,
              "9FE", index);
}

void MainWindow::showTouchPoints()
{
    const auto targets = checkTargets(screenSize(), g_uiHMI_TEST_LEVEL);
    std::copy(targets.begin(), targets.end(), m_touchPoints);
    g_showAllTPCalPoints = 1;
    g_ShowReadWriteInfo = 0;
    sendReply("9030");
    repaint();
}
