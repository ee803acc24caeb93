// What came over the line, as values: frame check, tables, identities, clock, factory.
#include "fuzz/require.h"
#include "hwtest/clockcompare.h"
#include "hwtest/factory.h"
#include "hwtest/idframe.h"
#include "ict/commandtables.h"
#include "link/frame.h"

#include <cstring>

static void checkIdentity(const QByteArray &text)
{
    for (const StationMatch match : {StationMatch::AsNumber, StationMatch::AsText}) {
        QByteArray id;
        if (!takeId(text, "05", match, &id))
            continue;
        require(text.contains(id));
        factoryOfMarker(factoryMarker(id));
        require(stationOfIdFrame(text).size() >= 2);
        if (isPlainId(id)) { // reads back as it was stored
            QByteArray again;
            require(takeId(idFrame("0701", id), {}, match, &again) && again == id);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const quint8 *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), int(size));
    char code[CodeSize + 1];
    for (const quint8 station : {0, 5}) {
        if (checkFrame(text.constData(), code, station))
            require(strlen(code) <= CodeSize);
    }
    for (quint32 level = 0; level < 4; ++level)
        findLongRequest(level, text.constData());
    checkIdentity(text);
    ClockFields rtc, asked;
    if (size >= 23) {
        asked = fieldsOfRequest(text.constData());
        dateArgument(text.constData());
        if (fieldsOfRtcLine(text.mid(19), &rtc))
            require(clocksAgree(rtc, asked) == clocksAgree(asked, rtc));
    }
    require(buildFrame("00", text).size() < 40);
    return 0;
}
