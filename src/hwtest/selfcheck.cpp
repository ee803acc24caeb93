#include "selfcheck.h"

#include "system/command.h"

#include <QDateTime>

constexpr int MaxRtcDifferenceS = 1;
constexpr int DdrLineLength = 9;
constexpr char DdrAllGood[] = "00000000"; // a digit an area

bool rtcAgreesWithSystem()
{
    const qint64 systemMs = QDateTime::currentMSecsSinceEpoch();
    const qint64 rtcS = numberFrom(QStringLiteral("cat /sys/class/rtc/rtc0/since_epoch"));
    return qAbs(systemMs / 1000 - rtcS) <= MaxRtcDifferenceS;
}

bool ddrPasses()
{
    return firstLineOf(QStringLiteral("/usr/local/ict/chk_ddr.sh"), DdrLineLength)
        .startsWith(DdrAllGood);
}
