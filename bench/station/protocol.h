#pragma once

#include "station/codec.h"

#include <QByteArray>
#include <QStringList>

// What a station knows of the panel's commands: where each is allowed, how it is answered, what it
// means. The texts and tables are data, plans/commands.json.

enum Level { Ict, T1, Bi, T2, LevelCount };

// Upper-case name: "ICT", "T1", "BI", "T2". levelByName() takes any case and gives -1 for none of
// them ("HMI" included).
const char *levelName(int level);
int levelByName(const QString &name);

struct Command {
    // Short requests by four characters, long ones by "8D", "8E", "0601", "9510", "KLV-".
    QByteArray code;
    QStringList levels; // where the panel knows the code
    bool framed = true; // answered by a frame, else by raw text, a frame of its own kind or not
    QString meaning;
    int settleS = 0; // a pass leaves work that a cut of power would lose, as a rule for so long
    QByteArray pass() const // the payload of a pass
    {
        return code.size() == 2 ? code + "00" : code;
    }
    bool allowedAt(int level) const
    {
        return levels.contains(levelName(level));
    }
};

// Null for a code that no panel knows.
const Command *findCommand(const QByteArray &code);
// The command that the bytes of a request ask for; null for what is none.
const Command *commandOf(const QByteArray &request);
// A request by its code. `argument`: the ID, the colour (six hex digits), the level to go to, or by
// how many seconds the clock is off. `number`: the panel's station number, 0 for any. `model` is
// for the forced change only. Throws BenchError for a forced change to what is no level.
QByteArray requestOf(const QByteArray &code, const QString &argument = {}, int number = 0,
                     const QString &model = {});

// A reply payload (or raw text) in words, for the request `code` ("" when unknown).
QString meaningOf(const QByteArray &payload, const QByteArray &code);
// What to look at when the request `code` was answered so; empty where nobody knows.
QString adviceOf(const QByteArray &payload, const QByteArray &code);
// Whether the request `code`, at `level`, was answered by what says failure or is no answer to it.
bool isFailure(const Reply &reply, const QByteArray &code, int level);
// Why a panel at `level`, with the number `station`, leaves `request` without an answer; empty when
// it should answer.
QString refusal(const QByteArray &request, int level, int station = 0);
