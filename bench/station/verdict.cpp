#include "station/verdict.h"

#include "station/protocol.h"

#include <QRegularExpression>

QString StepResult::advice() const
{
    return faults.isEmpty() || unanswered() ? QString() : adviceOf(reply.payload, step.code);
}

// What a text should have been, for people: a regular expression is none of their business.
static QString wantedText(const Step &step, const Values &values)
{
    static const QRegularExpression lineEnd("(\\\\[rn])+$"), syntax("[][\\\\()*+?|^$.]"),
        placeholder("\\$\\{\\w+\\}");
    const QString literal = QString(step.reply).remove(lineEnd);
    return !step.expected.isEmpty()                             ? expand(step.expected, values)
        : QString(literal).remove(placeholder).contains(syntax) ? QString("another form")
                                                                : expand(literal, values);
}

static QString volts(int millivolts)
{
    return QString::number(millivolts / 1000.0, 'f', 2) + " V";
}

// Bytes that a person may want to look up, where they are short enough.
static QString withCode(const QString &meaning, const QByteArray &payload)
{
    return payload.size() == 4 && !meaning.contains(payload) ? meaning + " (" + payload + ")"
                                                             : meaning;
}

static QString payloadFault(const StepResult &result, const QByteArray &wanted)
{
    const Command *command = findCommand(result.step.code);
    const QString is = withCode(result.meaning, result.reply.payload);
    return command && wanted == command->pass()
        ? is
        : is + ", expected " + withCode(meaningOf(wanted, result.step.code), wanted);
}

// What is wrong with the content of an answer, empty for nothing.
static QString mismatch(const StepResult &result, const Values &values)
{
    const Step &step = result.step;
    const Reply &reply = result.reply;
    const QByteArray &bytes = result.answer.bytes, wanted = expand(step.reply, values).toLatin1();
    const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(expand(step.reply, values, true)));
    const int millivolts = reply.kind == Reply::Battery ? reply.payload.toInt() * 10 : -1;
    switch (step.expect) {
    case Step::Payload:
        return reply.kind == Reply::Damaged                        ? result.meaning
            : reply.kind != Reply::Text && reply.payload == wanted ? QString()
                                                                   : payloadFault(result, wanted);
    case Step::Text:
        return pattern.match(textOf(bytes)).hasMatch()
            ? QString()
            : result.meaning + ", expected " + wantedText(step, values);
    case Step::Bytes:
        return bytes == wanted ? QString() : printable(bytes) + ", expected " + printable(wanted);
    case Step::Battery:
        return millivolts >= step.minimumMv && millivolts <= step.maximumMv
            ? QString()
            : QString("%1, expected %2 to %3")
                  .arg(result.meaning, volts(step.minimumMv), volts(step.maximumMv));
    case Step::Silence:
        break;
    }
    return "answered where no answer is due: " + result.meaning;
}

void judge(StepResult *result, int level, const Values &values, int number, bool strict)
{
    const Step &step = result->step;
    const Link::Answer &answer = result->answer;
    const Reply reply = result->reply = decode(answer.bytes);
    result->meaning = reply.kind == Reply::Damaged ? "damaged answer: " + printable(answer.bytes)
                                                   : meaningOf(reply.payload, step.code);
    QStringList &faults = result->faults;
    if (!answer.error.isEmpty()) {
        faults << answer.error;
    }
    if (reply.kind == Reply::None) {
        if (step.expect == Step::Silence) {
            result->meaning = "no answer, as it must be";
        } else {
            faults << QString("no answer (asked %1 times, for %2 s each)")
                          .arg(answer.tries)
                          .arg(step.timeoutMs / 1000.0);
        }
        return;
    }
    const QString wrong = mismatch(*result, values);
    if (!wrong.isEmpty()) {
        faults << wrong;
    }
    const int due = level == Bi || step.addressed ? number : 0;
    if (reply.station >= 0 && reply.kind != Reply::Identity && step.raw.isEmpty()
        && reply.station != due) {
        faults << QString("answered as station %1 instead of %2").arg(reply.station).arg(due);
    }
    if (strict && !reply.noise.isEmpty()) {
        faults << "bytes before the reply: " + printable(reply.noise);
    }
    if (strict && answer.tries > 1) {
        faults << QString("answered only at request %1").arg(answer.tries);
    }
}
