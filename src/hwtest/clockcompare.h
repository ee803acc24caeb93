// Two clocks compared by their columns: the line of `hwclock -r` and the station's request. Values
// only, no I/O.
#pragma once

#include <QByteArray>
#include <QtGlobal>

struct ClockFields {
    int year, month, day, hour, minute, second; // year: its last two digits
};

// The fields of "Thu Jan  1 08:00:00 2015", whatever follows. False for an unknown month or a line
// that ends before the year.
bool fieldsOfRtcLine(const QByteArray &line, ClockFields *fields);

// The fields of a station's clock request, 19 bytes of it at least. Digits are taken as they come.
ClockFields fieldsOfRequest(const char *request);

// Seconds of a calendar whose months have 30 days.
qint64 approximateSeconds(const ClockFields &fields);

// Less than three minutes apart, in either direction.
bool clocksAgree(const ClockFields &a, const ClockFields &b);

// The station's time as `date` takes it: MMDDhhmm20YY.ss.
QByteArray dateArgument(const char *request);
