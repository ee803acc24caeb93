#include "idframe.h"

#include "link/frame.h"

#include <algorithm>

constexpr int StationAt = 1, StationLength = 2;
constexpr int IdAt = 7;
constexpr int TailLength = 4; // LRC, CR LF
constexpr int StationForZero = 100; // 0 is every panel

static QByteArray lrcText(const QByteArray &characters)
{
    return hexByte(lrcOfCharacters(characters.constData(), characters.size()));
}

static bool isFor(const QByteArray &station, const QByteArray &ownStation, StationMatch match)
{
    if (station == "00")
        return true;
    if (ownStation.size() < StationLength)
        return false;
    return match == StationMatch::AsText
        ? station == ownStation
        : byteOfHex(station.constData()) == byteOfHex(ownStation.constData());
}

bool takeId(const QByteArray &frame, const QByteArray &ownStation, StationMatch match,
            QByteArray *id)
{
    const int lrcAt = frame.size() - TailLength;
    if (lrcAt < IdAt || frame[0] != ':' || !frame.endsWith("\r\n")
        || !isFor(frame.mid(StationAt, StationLength), ownStation, match)
        || frame.mid(lrcAt, 2) != lrcText(frame.mid(StationAt, lrcAt - StationAt)))
        return false;
    *id = frame.mid(IdAt, lrcAt - IdAt);
    return true;
}

bool isPlainId(const QByteArray &id)
{
    const auto isForeign = [](char c) { return c == ':' || quint8(c) < 0x20 || c == 0x7F; };
    return std::none_of(id.begin(), id.end(), isForeign);
}

QByteArray idFrame(const QByteArray &code, const QByteArray &id)
{
    const QByteArray body = "00" + code + id;
    return ':' + body + lrcText(body) + "\r\n";
}

QByteArray stationOfIdFrame(const QByteArray &frame)
{
    const int number = atoi(frame.mid(frame.size() - TailLength - 2, 2).constData());
    return hexByte(quint8(number ? number : StationForZero));
}
