// Frames of the PC link as values, without I/O.
//
//   ':'  station (2 hex)  code (4 hex)  data ...  LRC (2 hex)  CR LF
//
// The LRC is the two's complement of the sum of all bytes that the characters between ':' and LRC
// spell in hexadecimal, written in upper case.
#pragma once

#include <QByteArray>
#include <QtGlobal>

constexpr int ShortFrameSize = 11; // request without data
constexpr int CodeSize = 4;
constexpr int MaxPayload = 30; // a reply with more would not fit a link buffer

// The two upper-case hexadecimal digits of `value`.
QByteArray hexByte(quint8 value);

// The value of the hexadecimal digits at the start of `text`'s first two characters, 0 if there are
// none.
quint8 byteOfHex(const char *text);

// Two's complement LRC of a sum.
quint8 lrcOfSum(unsigned sum);

// LRC over `length` characters taken as hexadecimal pairs; an odd last digit counts alone.
quint8 lrcOfHexPairs(const char *text, int length);

// LRC over the character codes themselves, as the frames that carry an ID use it.
quint8 lrcOfCharacters(const char *text, int length);

// Checks start, end, LRC (lower case is a mismatch) and station of the NUL-terminated `text`, of
// any length. On a good LRC copies the code, NUL-terminated, to `code` (5 bytes at least). True
// when the frame may be dispatched: addressed to "00" or to `station`, or the station assignment
// "8A00", which must reach a panel whose number is not agreed yet.
bool checkFrame(const char *text, char *code, quint8 station);

// The whole reply frame; a payload over MaxPayload characters is cut.
QByteArray buildFrame(const QByteArray &station, const QByteArray &payload);
