#include "station/protocol.h"

#include "panel/bencherror.h"
#include "panel/files.h"

#include <QHash>
#include <QJsonArray>

#include <algorithm>

static const char *const levelNames[] = {"ICT", "T1", "BI", "T2"};

const char *levelName(int level)
{
    return level >= 0 && level < LevelCount ? levelNames[level] : "?";
}

int levelByName(const QString &name)
{
    const auto same = [&](const char *level) {
        return name.compare(QLatin1String(level), Qt::CaseInsensitive) == 0;
    };
    const auto found = std::find_if(levelNames, levelNames + LevelCount, same);
    return found == levelNames + LevelCount ? -1 : int(found - levelNames);
}

static const QJsonObject &data()
{
    static const QJsonObject file = readJson(dataFolder() + "/bench/plans/commands.json");
    return file;
}

const Command *findCommand(const QByteArray &code)
{
    static const QHash<QByteArray, Command> commands = [] {
        QHash<QByteArray, Command> commands;
        for (const QJsonValue &row : data()["commands"].toArray()) {
            const QByteArray code = row["code"].toString().toLatin1();
            commands[code] = {code, row["levels"].toString().split(' '), row["answer"] == "frame",
                              row["means"].toString(), row["settle"].toInt()};
        }
        return commands;
    }();
    const auto found = commands.constFind(code);
    return found == commands.constEnd() ? nullptr : &*found;
}

const Command *commandOf(const QByteArray &request)
{
    if (!request.startsWith(':'))
        return request.endsWith("\r\n") && request.contains('-') ? findCommand("KLV-") : nullptr;
    if (request.startsWith(":9510"))
        return findCommand("9510");
    const Command *const clock = findCommand(request.mid(3, 2));
    return clock ? clock : findCommand(request.mid(3, 4));
}

// A forced change is a bare line. Its line end makes it the 11 bytes that the panel reads at least,
// whatever the model. The colour has neither station nor check digits nor line end.
QByteArray requestOf(const QByteArray &code, const QString &text, int number, const QString &model)
{
    static const QHash<QString, QByteArray> wireLevels{
        {"ICT", "04"}, {"T1", "01"}, {"BI", "02"}, {"T2", "03"}, {"HMI", "00"}};
    const QByteArray argument = text.toLatin1();
    if (code == "8D" || code == "8E")
        return clockRequest(code, QDateTime::currentDateTime().addSecs(argument.toInt()));
    if (code.startsWith("060"))
        return identityRequest(0, code, argument);
    if (code == "9510")
        return ":9510" + argument;
    if (code == "KLV-") {
        const QByteArray level = wireLevels.value(text.toUpper());
        if (level.isEmpty())
            throw BenchError(
                QString("a forced change goes to ict, t1, bi, t2 or hmi, not to \"%1\"").arg(text));
        return model.toLatin1() + '-' + level + "\r\n";
    }
    return shortRequest(number, code);
}

QString meaningOf(const QByteArray &payload, const QByteArray &code)
{
    if (payload.isEmpty())
        return "no answer";
    const QJsonValue known = data()["answers"][QLatin1String(payload)];
    if (known.isString())
        return known.toString();
    const Command *command = findCommand(code);
    const QString what = command ? command->meaning : "unknown request";
    const QString text = printable(payload.trimmed());
    if ((code == "8800" || code == "8801") && payload.size() == 4 && text.size() == 4)
        return QString("%1: %2.%3 V").arg(what, text.mid(1, 1), text.mid(2));
    if (payload.size() > 4 && payload.startsWith(code) && code.startsWith("07"))
        return what + " " + text.mid(4).trimmed();
    if (payload.size() != 4 || (command && !command->framed && payload.endsWith('\n')))
        return what + " " + text;
    if (command && payload == command->pass())
        return what + ": passed";
    if (payload.left(2) == code.left(2) && payload[2] > '9')
        return what + ": failed";
    return what + ": foreign answer " + text;
}

QString adviceOf(const QByteArray &payload, const QByteArray &code)
{
    const QJsonValue advice = data()["advice"];
    return advice[QLatin1String(payload)].toString(advice[QLatin1String(code)].toString());
}

bool isFailure(const Reply &reply, const QByteArray &code, int level)
{
    const Command *command = findCommand(code);
    const bool judged =
        code == "8800"; // at BI, where a low battery sends its value, a good one 0295
    switch (command ? reply.kind : Reply::None) {
    case Reply::Frame:
        return reply.payload != command->pass() && !(judged && reply.payload == "0295");
    case Reply::Battery:
        return command->framed || (judged && level == Bi);
    case Reply::Text: // or noise
        return command->framed || code.startsWith("88") || code.startsWith("07")
            || reply.payload == "FORCIBLY_GOTO_FAIL";
    default:
        return false;
    }
}

QString refusal(const QByteArray &request, int level, int station)
{
    const Command *command = commandOf(request);
    if (!command)
        return "no panel knows this request";
    if (!command->allowedAt(level))
        return QString("not at level %1").arg(levelName(level));
    // The clock's check digits are not looked at; the colour and the forced change have none.
    if (command->code.size() != 4 || command->code == "9510" || command->code == "KLV-")
        return {};
    const QByteArray body = request.mid(1, request.size() - 5);
    const QByteArray wanted = body.mid(2, 2) == "06" ? characterLrc(body) : hexLrc(body);
    if (!request.endsWith("\r\n"))
        return "no line end";
    if (request.mid(body.size() + 1, 2) != wanted)
        return "check digits should be " + wanted;
    const int asked = body.left(2).toInt(nullptr, 16), own = level == Bi ? station : 0;
    return asked == 0 || asked == own || command->code == "8A00"
        ? QString()
        : QString("for station %1, here is %2").arg(asked).arg(own);
}
