#pragma once

#include <QByteArray>
#include <QString>

// What the programs that ask a panel without a plan know of its PC link; wire.py and requests.py
// know all of it. Written apart from the agent's link code on purpose: a judge that shares the code
// it judges finds nothing.

// A request by its four digits, to any panel.
QByteArray shortRequest(const QByteArray &code);

struct Reply {
    enum Kind {
        None, // nothing came
        Frame, // its check is made of the bytes that its hex digits stand for
        Identity, // its check is made of the characters: payload is the code and the ID
        Battery, // frame without its line feed: payload is "0" and volts, tenths, hundredths
        Text, // raw text, as it came
        Damaged // begins like a frame and is none
    };
    Kind kind = None;
    QByteArray payload; // of the frame kinds without station and check digits, else the bytes
};

// Decodes what came in answer to one request.
Reply decode(const QByteArray &bytes);
// True once `bytes` needs no more: a line end came, or (`quiet`) the line fell silent and the text
// is one of those that have none. A frame that has only begun is not complete however quiet the
// line is.
bool isComplete(const QByteArray &bytes, bool quiet);
// Control characters as escapes, for people; and back.
QString printable(const QByteArray &bytes);
QByteArray unprintable(const QByteArray &text);
