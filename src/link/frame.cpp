#include "frame.h"

#include <cstdlib>
#include <cstring>

constexpr char AssignStationCode[] = "8A00";

QByteArray hexByte(quint8 value)
{
    static const char digits[] = "0123456789ABCDEF";
    return QByteArray(1, digits[value >> 4]) + digits[value & 0x0F];
}

static quint8 byteOfHexDigits(const char *text, int digits)
{
    char pair[3] = {};
    memcpy(pair, text, size_t(digits));
    return quint8(strtoul(pair, nullptr, 16));
}

quint8 byteOfHex(const char *text)
{
    return byteOfHexDigits(text, 2);
}

quint8 lrcOfSum(unsigned sum)
{
    return quint8(0x100 - (sum & 0xFF));
}

quint8 lrcOfHexPairs(const char *text, int length)
{
    unsigned sum = 0;
    for (int i = 0; i < length; i += 2)
        sum += byteOfHexDigits(text + i, qMin(2, length - i));
    return lrcOfSum(sum);
}

quint8 lrcOfCharacters(const char *text, int length)
{
    unsigned sum = 0;
    for (int i = 0; i < length; ++i)
        sum += quint8(text[i]);
    return lrcOfSum(sum);
}

bool checkFrame(const char *text, char *code, quint8 station)
{
    const int length = int(strlen(text));
    if (length < ShortFrameSize || text[0] != ':' || text[length - 2] != '\r'
        || text[length - 1] != '\n')
        return false;
    const bool everyPanel = text[1] == '0' && text[2] == '0';
    const bool foreign = !everyPanel && byteOfHex(text + 1) != station;
    const int lrcAt = length - 4;
    if (hexByte(lrcOfHexPairs(text + 1, lrcAt - 1)) != QByteArray(text + lrcAt, 2))
        return false;
    memcpy(code, text + 3, CodeSize);
    code[CodeSize] = '\0';
    return !foreign || strcmp(code, AssignStationCode) == 0;
}

QByteArray buildFrame(const QByteArray &station, const QByteArray &payload)
{
    const QByteArray body = station + payload.left(MaxPayload);
    return ':' + body + hexByte(lrcOfHexPairs(body.constData(), body.size())) + "\r\n";
}
