#pragma once

#include <QByteArray>
#include <QString>

// What a station knows of the panel's commands: where each is allowed, how it is answered and
// logged, what it means.
enum Level { Ict, T1, Bi, T2, LevelCount };

// Upper-case name: "ICT", "T1", "BI", "T2". levelByName() takes any case and gives -1 for none of
// them ("HMI" included).
const char *levelName(int level);
int levelByName(const QString &name);
// Two digits of the level on the wire ("04" ICT, "01" T1, "02" BI, "03" T2), and "00" for "HMI".
QByteArray wireLevel(const QString &name);
// The end check's code of a level: "0400", "0100", "0200", "0300".
QByteArray endCheckCode(int level);

enum class Answer {
    Frame, // a frame, logged as traffic
    Raw, // raw text, not logged
    RawLogged, // raw text or a frame of its own kind, logged as traffic
    None // never answered
};

struct Command {
    const char
        *code; // short requests by four characters, long ones by "8D", "8E", "0601", "9510", "KLV-"
    unsigned levels; // bit (1 << level) set where the panel knows the code
    Answer answer;
    const char *meaning;
};

// Null for a code that no panel knows.
const Command *findCommand(const QByteArray &code);
bool allowedAt(const Command &command, int level);

// A reply payload (or raw text) in words, for the request `code` ("" when unknown).
QString meaningOf(const QByteArray &payload, const QByteArray &code);
