#include "station/verdict.h"

#include "fixture/finger.h"
#include "station/protocol.h"

#include <QRegularExpression>

bool expectsFrame(const Step &step)
{
    return !step["silence"].toBool() && !step.contains("text")
        && (!step.contains("bytes") || step["bytes"].toString().startsWith(':'));
}

// What a text should have been, for people: a regular expression is none of their business.
static QString wantedText(const Step &step, const Values &values)
{
    static const QRegularExpression lineEnd("(\\\\[rn])+$"), syntax("[][\\\\()*+?|^$.]"),
        placeholder("\\$\\{\\w+\\}");
    const QString literal = step["text"].toString().remove(lineEnd);
    if (step.contains("expected"))
        return expand(step["expected"].toString(), values);
    return QString(literal).remove(placeholder).contains(syntax) ? QString("another form")
                                                                 : expand(literal, values);
}

static QString volts(const QJsonValue &millivolts)
{
    return QString::number(millivolts.toInt() / 1000.0, 'f', 2) + " V";
}

// Bytes that a person may want to look up, where they are short enough.
static QString withCode(const QString &meaning, const QByteArray &payload)
{
    const QString text = printable(payload);
    const bool shown = payload.size() == 4 && !meaning.contains(text);
    return shown ? meaning + " (" + text + ")" : meaning;
}

static int millivoltsOf(const Reply &reply)
{
    return reply.kind == Reply::Battery ? reply.payload.toInt() * 10 : -1;
}

// What is wrong with the content of an answer, empty for nothing.
static QString mismatch(const Step &step, const QByteArray &bytes, const Verdict &verdict,
                        const Values &values)
{
    const Reply &reply = verdict.reply;
    const auto wanted = [&](const char *key) {
        return expand(step[key].toString(), values).toLatin1();
    };
    if (step.contains("text")) {
        const QString pattern = expand(step["text"].toString(), values, true);
        const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern));
        return whole.match(textOf(bytes)).hasMatch()
            ? QString()
            : verdict.meaning + ", expected " + wantedText(step, values);
    }
    if (step.contains("bytes")) {
        const QByteArray due = wanted("bytes");
        return bytes == due ? QString() : printable(bytes) + ", expected " + printable(due);
    }
    if (step.contains("battery")) {
        const QJsonValue least = step["battery"][0], most = step["battery"][1];
        const int is = millivoltsOf(reply);
        return is >= least.toInt() && is <= most.toInt()
            ? QString()
            : QString("%1, expected %2 to %3").arg(verdict.meaning, volts(least), volts(most));
    }
    if (step["silence"].toBool())
        return "answered where no answer is due: " + verdict.meaning;
    const QByteArray code = step["code"].toString().toLatin1(), due = wanted("reply");
    if (reply.kind == Reply::Damaged)
        return verdict.meaning;
    if (reply.kind != Reply::Text && reply.payload == due)
        return {};
    const Command *command = findCommand(code);
    const QString is = withCode(verdict.meaning, reply.payload);
    const bool pass = command && due == command->pass();
    return pass ? is : is + ", expected " + withCode(meaningOf(due, code), due);
}

// What was measured, with its limits where there are some.
static QJsonArray measured(const Step &step, const Reply &reply, int level)
{
    static const QRegularExpression position("^\\( *(\\d+), *(\\d+)\\)");
    if (reply.kind == Reply::Battery) {
        QJsonObject value{{"name", "battery"}, {"unit", "mV"}, {"value", millivoltsOf(reply)}};
        if (step.contains("battery")) {
            value["min"] = step["battery"][0];
            value["max"] = step["battery"][1];
        }
        return {value};
    }
    const QRegularExpressionMatch match = position.match(textOf(reply.payload));
    if (reply.kind != Reply::Text || !match.hasMatch())
        return {};
    const QByteArray code = step["code"].toString().toLatin1();
    const Command *command = findCommand(code);
    const QString name = command ? command->meaning : step["name"].toString();
    // A touch of the check is judged by how far it is from its target, the others by nobody.
    const bool judged = code.startsWith("902");
    const QPoint target = judged ? touchTargets(checkMargin).value(code[3] - '1') : QPoint();
    const QPoint off = QPoint(match.captured(1).toInt(), match.captured(2).toInt()) - target;
    const int tolerance = level == T2 ? 11 : 10;
    QJsonArray values;
    for (const auto &[axis, value] : {std::pair("x", off.x()), std::pair("y", off.y())}) {
        QJsonObject one{{"name", QString(judged ? "%1, %2 off" : "%1 %2").arg(name, axis)},
                        {"unit", "px"},
                        {"value", value}};
        if (judged) {
            one["min"] = -tolerance;
            one["max"] = tolerance;
        }
        values << one;
    }
    return values;
}

Verdict judge(const Step &step, const Link::Answer &answer, const Values &values, const Judging &by)
{
    const QByteArray code = step["code"].toString().toLatin1();
    Verdict verdict;
    const Reply &reply = verdict.reply = decode(answer.bytes);
    QStringList &faults = verdict.faults;
    if (!answer.error.isEmpty())
        faults << answer.error;
    verdict.meaning = reply.kind == Reply::Damaged ? "damaged answer: " + printable(answer.bytes)
                                                   : meaningOf(reply.payload, code);
    const bool silent = reply.kind == Reply::None, due = !step["silence"].toBool();
    verdict.unanswered = !answer.error.isEmpty() || (silent && due);
    if (silent && !due)
        verdict.meaning = "no answer, as it must be";
    else if (silent)
        faults << QString("no answer (asked %1 times, for %2 s each)")
                      .arg(answer.tries)
                      .arg(step["timeout"].toDouble() / 1000);
    if (silent)
        return verdict;
    verdict.advice = verdict.unanswered ? QString() : adviceOf(reply.payload, code);
    verdict.measured = measured(step, reply, by.level);
    const QString wrong = mismatch(step, answer.bytes, verdict, values);
    if (!wrong.isEmpty())
        faults << wrong;
    const int station = by.level == Bi || step["addressed"].toBool() ? by.number : 0;
    if (reply.station >= 0 && reply.kind != Reply::Identity && step["raw"].toString().isEmpty()
        && reply.station != station)
        faults << QString("answered as station %1 instead of %2").arg(reply.station).arg(station);
    if (by.strict && !reply.noise.isEmpty())
        faults << "bytes before the reply: " + printable(reply.noise);
    if (by.strict && answer.tries > 1)
        faults << QString("answered only at request %1").arg(answer.tries);
    return verdict;
}
