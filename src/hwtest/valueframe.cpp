#include "valueframe.h"

#include "link/frame.h"

constexpr int LrcCharacters = 6; // station and four digits

QByteArray valueFrame(const QByteArray &station, double mV)
{
    const int centivolts = int(mV / 10); // the last digit of the millivolts is dropped
    const QByteArray body = station + '0' + QByteArray::number(centivolts / 100)
        + QByteArray::number(centivolts / 10 % 10) + QByteArray::number(centivolts % 10);
    return ':' + body + hexByte(lrcOfHexPairs(body.constData(), LrcCharacters)) + "\r\n";
}
