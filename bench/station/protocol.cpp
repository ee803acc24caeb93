#include "station/protocol.h"

#include "station/codec.h"

#include <QHash>

static const char *const levelNames[] = {"ICT", "T1", "BI", "T2"};
static const char *const wireLevels[] = {"04", "01", "02", "03"};

const char *levelName(int level)
{
    return level >= 0 && level < LevelCount ? levelNames[level] : "?";
}

int levelByName(const QString &name)
{
    for (int level = 0; level < LevelCount; ++level) {
        if (name.compare(QLatin1String(levelNames[level]), Qt::CaseInsensitive) == 0) {
            return level;
        }
    }
    return -1;
}

QByteArray wireLevel(const QString &name)
{
    const int level = levelByName(name);
    return level < 0 ? "00" : wireLevels[level];
}

QByteArray endCheckCode(int level)
{
    return QByteArray(wireLevels[level]) + "00";
}

namespace {
constexpr unsigned I = 1 << Ict, A = 1 << T1, B = 1 << Bi, Z = 1 << T2;
constexpr unsigned Plain = I | A | Z; // everywhere but on the burn-in bus

const Command commands[] = {
    {"FF00", Plain, Answer::Raw, "firmware version"},
    {"AA00", Plain, Answer::Raw, "CRC of the flash image"},
    {"AB00", Plain, Answer::Raw, "panel model"},
    {"FF01", Plain, Answer::Raw, "tool version of the fixture"},
    {"8000", Plain, Answer::Frame, "COM1 RS-232 presence"},
    {"8102", Plain, Answer::Frame, "COM1 RS-485"},
    {"8107", Plain, Answer::Frame, "COM2 RS-422 and RS-485"},
    {"810A", Plain, Answer::Frame, "COM1 and COM2, all modes"},
    {"8500", Plain | B, Answer::Frame, "DDR memory"},
    {"8700", I, Answer::Frame, "backup root file system"},
    {"8800", Plain | B, Answer::RawLogged, "battery voltage"},
    {"8801", Plain | B, Answer::RawLogged, "battery voltage, no threshold"},
    {"8A00", A, Answer::Frame, "assign the station number"},
    {"8C00", I, Answer::Frame, "RTC against system clock"},
    {"8D", A, Answer::Frame, "set the clock"},
    {"8E", A | Z, Answer::Frame, "RTC against the station's time"},
    {"9000", A, Answer::Frame, "touch calibration, five targets checked"},
    {"9004", A, Answer::Frame, "touch calibration, three targets checked"},
    {"9001", Z, Answer::Frame, "touch check"},
    {"9002", I, Answer::RawLogged, "touch coordinates"},
    {"9003", A | B | Z, Answer::Frame, "touch pressure at rest"},
    {"9011", A, Answer::Raw, "touch value 1 of calibration"},
    {"9012", A, Answer::Raw, "touch value 2 of calibration"},
    {"9013", A, Answer::Raw, "touch value 3 of calibration"},
    {"9014", A, Answer::Raw, "touch value 4 of calibration"},
    {"9015", A, Answer::Raw, "touch value 5 of calibration"},
    {"9021", A | Z, Answer::Raw, "touch value 1 of the check"},
    {"9022", A | Z, Answer::Raw, "touch value 2 of the check"},
    {"9023", A | Z, Answer::Raw, "touch value 3 of the check"},
    {"9024", A | Z, Answer::Raw, "touch value 4 of the check"},
    {"9025", A | Z, Answer::Raw, "touch value 5 of the check"},
    {"9030", A | Z, Answer::Frame, "show the touch targets"},
    {"9201", Plain, Answer::Frame, "buzzer"},
    {"9202", Plain, Answer::Frame, "buzzer silent, then sounding"},
    {"9301", A | Z, Answer::Frame, "backlight off"},
    {"9302", A | Z, Answer::Frame, "backlight on"},
    {"9502", I, Answer::Frame, "LCM circuit, 20 patterns"},
    {"9508", I, Answer::Frame, "LCM circuit by I2C, 20 patterns"},
    {"9503", I, Answer::Frame, "LCM circuit, 2 patterns"},
    {"9509", I, Answer::Frame, "LCM circuit by I2C, 2 patterns"},
    {"9504", A | B | Z, Answer::Frame, "red screen"},
    {"9505", A | B | Z, Answer::Frame, "green screen"},
    {"9506", A | B | Z, Answer::Frame, "blue screen"},
    {"9507", A | B | Z, Answer::Frame, "red, green and blue bands"},
    {"9510", Plain, Answer::Frame, "screen of a given colour"},
    {"0601", A, Answer::Frame, "store the machine ID"},
    {"0602", I, Answer::Frame, "store the semi-finished machine ID"},
    {"0603", Z, Answer::Frame, "verify the semi-finished machine ID"},
    {"0701", A | Z, Answer::RawLogged, "machine ID"},
    {"0702", Plain, Answer::RawLogged, "semi-finished machine ID"},
    {"A200", Plain | B, Answer::Frame, "USB storage"},
    {"CC00", Plain | B, Answer::Frame, "export the saved logs to USB"},
    {"CC01", Plain | B, Answer::Frame, "export the saved logs to SD"},
    {"CC10", Plain | B, Answer::Frame, "export the logs to USB"},
    {"CC11", Plain | B, Answer::Frame, "export the logs to SD"},
    {"CE00", Plain | B, Answer::None, "USB port to mode 4"},
    {"CE01", Plain | B, Answer::None, "USB port to mode 1"},
    {"0400", I, Answer::Frame, "end check of ICT"},
    {"0100", A, Answer::Frame, "end check of T1"},
    {"0101", A, Answer::Frame, "end check of T1, straight to HMI"},
    {"0200", B, Answer::Frame, "end check of BI"},
    {"0300", Z, Answer::Frame, "end check of T2"},
    {"KLV-", Plain | B, Answer::RawLogged, "forced change of level"},
};

// Failures that say more than "failed".
const QHash<QByteArray, const char *> failures = {
    {"81F2", "COM1 RS-485: answer wrong or missing"},
    {"81F7", "COM2 RS-422: echo wrong or missing"},
    {"81F3", "COM2 to COM1 RS-485: echo wrong or missing"},
    {"87F0", "backup root file system: no result"},
    {"87F1", "backup root file system: result 1"},
    {"87F2", "backup root file system: result 2"},
    {"86FF", "RTC check refused: no restart since the clock was set"},
    {"90F3", "touch pressure at rest is not 0"},
    {"92F1", "buzzer not heard"},
    {"92F2", "buzzer not heard in its second"},
    {"92F3", "buzzer: no silence"},
    {"01FF", "end check of T1 refused: clock set, restart and RTC check are needed first"},
    {"CCF0", "no USB stick or no saved logs"},
    {"CCF1", "no SD card or no saved logs"},
    {"CCE0", "no USB stick"},
    {"CCE1", "no SD card"},
    {"07F1", "no machine ID stored"},
    {"07F2", "no semi-finished machine ID stored"},
    {"0295", "battery at least 2.95 V"},
};
}

const Command *findCommand(const QByteArray &code)
{
    for (const Command &command : commands) {
        if (code == command.code) {
            return &command;
        }
    }
    return nullptr;
}

bool allowedAt(const Command &command, int level)
{
    return command.levels & (1u << level);
}

// The failing pattern of an LCM reply: "95FF" counts down from pattern 1, the fast modes from
// "95E7".
static QString lcmPattern(const QByteArray &payload, const QByteArray &code)
{
    const bool fast = code == "9503" || code == "9509";
    const int pattern = (fast ? 0x95E7 : 0x95FF) - payload.toInt(nullptr, 16) + 1;
    return QString("LCM circuit: pattern %1 failed").arg(pattern);
}

QString meaningOf(const QByteArray &payload, const QByteArray &code)
{
    if (payload.isEmpty()) {
        return "no answer";
    }
    if (failures.contains(payload)) {
        return failures.value(payload);
    }
    if (code.startsWith("95") && (payload.startsWith("95F") || payload.startsWith("95E"))) {
        return lcmPattern(payload, code);
    }
    if (payload.startsWith("FORCIBLY_GOTO_")) {
        return payload.endsWith("FAIL") ? "level change refused"
                                        : "level file now " + payload.mid(14).split('_').first();
    }
    const Command *command = findCommand(code);
    const QString what = command ? command->meaning : "unknown request";
    if ((code == "8800" || code == "8801") && payload.size() == 4) {
        return QString("%1: %2.%3 V").arg(what).arg(payload[1]).arg(QString(payload.mid(2)));
    }
    if (payload.size() > 4 && payload.startsWith(code) && code.startsWith("07")) {
        return what + " " + payload.mid(4).trimmed();
    }
    if (payload.size() != 4
        || (command && command->answer == Answer::Raw && payload.endsWith('\n'))) {
        return what + " " + textOf(payload.trimmed());
    }
    const QByteArray own = code.size() == 2 ? code + "00" : code;
    if (payload == own) {
        return what + ": passed";
    }
    if (payload.left(2) == own.left(2) && payload[2] > '9') {
        return what + ": failed";
    }
    return what + ": foreign answer " + payload;
}
