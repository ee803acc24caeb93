// Frames that carry an ID. Values only, no I/O.
//
//   ':'  station (2)  code (4)  ID text ...  LRC (2 hex)  CR LF
//
// Unlike on all other frames, the LRC is over the character codes of what stands before it.
#pragma once

#include <QByteArray>

enum class StationMatch {
    AsNumber, // machine IDs: "0a" is station "0A"
    AsText // semi-finished machine IDs: "0a" is not
};

// Takes the ID out of `frame`. False when start, end or LRC are wrong, or when the frame is
// addressed to neither "00" nor `ownStation`, the two characters of the station file (fewer when
// there is no such file, which matches nothing).
bool takeId(const QByteArray &frame, const QByteArray &ownStation, StationMatch match,
            QByteArray *id);

// Whether `id` can be one: no control character and no ':', as a line end that was damaged on the
// wire leaves in it with the request that followed.
bool isPlainId(const QByteArray &id);

// The frame that reads an ID back, always with station "00".
QByteArray idFrame(const QByteArray &code, const QByteArray &id);

// The station number in a machine ID's last two digits, as the station file holds it; 100 where
// they are "00". `frame` is one that takeId() accepts.
QByteArray stationOfIdFrame(const QByteArray &frame);
