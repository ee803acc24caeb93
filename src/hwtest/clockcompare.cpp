#include "clockcompare.h"

#include <cstdlib>
#include <cstring>

constexpr qint64 MaxDifferenceS = 180;
constexpr int MonthNameLength = 3;

namespace RtcColumn {
constexpr int Month = 4, Day = 8, Hour = 11, Minute = 14, Second = 17, Year = 22, End = 24;
}

// Columns 15 and 16 are not used.
namespace RequestColumn {
constexpr int Second = 5, Minute = 7, Hour = 9, Day = 11, Month = 13, Year = 17;
}

// A leading blank counts as zero.
static int twoDigits(const char *text)
{
    const char digits[] = {text[0], text[1], '\0'};
    return atoi(digits);
}

// 1 to 12, 0 if there is no such name.
static int monthOfName(const char *name)
{
    static const char names[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (int month = 1; month <= 12; ++month) {
        if (strncmp(names + (month - 1) * MonthNameLength, name, MonthNameLength) == 0)
            return month;
    }
    return 0;
}

bool fieldsOfRtcLine(const QByteArray &line, ClockFields *fields)
{
    if (line.size() < RtcColumn::End)
        return false;
    const char *text = line.constData();
    *fields = {twoDigits(text + RtcColumn::Year),   monthOfName(text + RtcColumn::Month),
               twoDigits(text + RtcColumn::Day),    twoDigits(text + RtcColumn::Hour),
               twoDigits(text + RtcColumn::Minute), twoDigits(text + RtcColumn::Second)};
    return fields->month != 0;
}

ClockFields fieldsOfRequest(const char *request)
{
    return {twoDigits(request + RequestColumn::Year),   twoDigits(request + RequestColumn::Month),
            twoDigits(request + RequestColumn::Day),    twoDigits(request + RequestColumn::Hour),
            twoDigits(request + RequestColumn::Minute), twoDigits(request + RequestColumn::Second)};
}

// Months of 30 days on purpose: the two times are close, and both sources are counted the same way.
// Clocks that agree come out apart only across the end of a month of another length, and fail.
qint64 approximateSeconds(const ClockFields &fields)
{
    const qint64 days = fields.year * 365 + fields.month * 30 + fields.day;
    return 86400 * days + fields.hour * 3600 + fields.minute * 60 + fields.second;
}

bool clocksAgree(const ClockFields &a, const ClockFields &b)
{
    return qAbs(approximateSeconds(a) - approximateSeconds(b)) < MaxDifferenceS;
}

QByteArray dateArgument(const char *request)
{
    using namespace RequestColumn;
    QByteArray argument;
    for (int column : {Month, Day, Hour, Minute})
        argument.append(request + column, 2);
    return argument.append("20").append(request + Year, 2).append('.').append(request + Second, 2);
}
