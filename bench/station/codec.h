#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

// The station's own reading and writing of the PC link. It is written apart from the agent's link
// code on purpose: a judge that shares the code it judges finds nothing.
// Two's complement of the byte sum of `ascii`, read as pairs of hex digits, as two upper-case hex
// digits.
QByteArray hexLrc(const QByteArray &ascii);
// The same over the character codes themselves: the check of the requests and replies that carry an
// identity.
QByteArray characterLrc(const QByteArray &ascii);

// Requests, ready to send; protocol.h makes any by its code. `number` is the station number, 0 for
// any panel.
QByteArray shortRequest(int number, const QByteArray &code);
// `kind` is "8D" (set) or "8E" (compare); the two columns between month and year are filled with
// the weekday.
QByteArray clockRequest(const QByteArray &kind, const QDateTime &time);
// `code` is "0601", "0602" or "0603".
QByteArray identityRequest(int number, const QByteArray &code, const QByteArray &id);

struct Reply {
    enum Kind {
        None, // nothing came
        Frame, // checked by hexLrc
        Identity, // checked by characterLrc: payload is the code and the ID
        Battery, // frame without its line feed: payload is "0" and volts, tenths, hundredths
        Text, // raw text, as it came
        Damaged // begins like a frame and is none
    };
    Kind kind = None;
    int station = -1; // of the frame kinds
    QByteArray payload; // of the frame kinds without station and check digits, else the bytes
    QByteArray noise; // what came before the frame and belongs to nothing
};

// Decodes what came in answer to one request.
Reply decode(const QByteArray &bytes);
// True once `bytes` needs no more: a line end came, or (`quiet`) the line fell silent and the text
// is one of those that have none. A frame that has only begun is not complete however quiet the
// line is.
bool isComplete(const QByteArray &bytes, bool quiet);
// All of the bytes, zeros included (QString's own conversion stops at the first).
inline QString textOf(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size());
}
// Control characters as escapes, for people; and back.
QString printable(const QByteArray &bytes);
QByteArray unprintable(const QByteArray &text);
