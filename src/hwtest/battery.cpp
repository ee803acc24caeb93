// The backup battery. The station judges the value; only BI, which has no station at hand, judges
// it here.
#include "analoginput.h"
#include "link/factorylog.h"
#include "link/reply.h"
#include "mainwindow.h"
#include "state/itemrecord.h"
#include "valueframe.h"

constexpr ItemIndex BatteryItem = {13, 14, 2, 13};
constexpr double LowestAtBiMv = 2950;

void MainWindow::measureBattery(int reply)
{
    const int item = BatteryItem.atLevel();
    if (item < 0)
        return;
    beginTest(item);
    double mV = 0;
    readBattery(&mV);
    const bool judged = reply == BatteryJudgedAtBi && g_uiHMI_TEST_LEVEL == LevelBI;
    if (judged && mV >= LowestAtBiMv)
        sendReply("0295");
    else
        sendRaw(linkWriteFd(), valueFrame(QByteArray(gc_SN, 2), mV), ValueFrameSent);
    if (!judged || mV >= LowestAtBiMv)
        setItem(item, ItemPassed);
    recordItem(item);
    factoryLog(QByteArray("Battery Voltage : ")
                   .append(QByteArray::number(mV / 1000, 'f', 3))
                   .append('\n')
                   .constData());
    factoryLog(nullptr);
}
