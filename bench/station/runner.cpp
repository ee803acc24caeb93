#include "station/runner.h"

#include "panel/bencherror.h"
#include "station/protocol.h"

#include <QMutex>
#include <QRegularExpression>
#include <algorithm>
#include <cstdio>
#include <unistd.h>

void say(const QString &line, bool bad)
{
    static QMutex mutex;
    const QMutexLocker lock(&mutex);
    const bool colour = bad && isatty(STDOUT_FILENO);
    printf(colour ? "\033[31m%s\033[0m\n" : "%s\n", qPrintable(line));
    fflush(stdout);
}

bool LevelResult::passed() const
{
    return faults.isEmpty()
        && std::all_of(steps.begin(), steps.end(),
                       [](const StepResult &result) { return result.faults.isEmpty(); });
}

double LevelResult::medianOverheadMs() const
{
    QVector<double> overheads;
    for (const StepResult &result : steps) {
        if (!result.step.items.isEmpty() && result.step.during.isEmpty()) {
            overheads << result.overheadMs();
        }
    }
    if (overheads.isEmpty()) {
        return 0;
    }
    const auto middle = overheads.begin() + overheads.size() / 2;
    std::nth_element(overheads.begin(), middle, overheads.end());
    return *middle;
}

Runner::Runner(Link &link, Stand &stand, Values values, int number, QString label, bool strict)
    : link_(link)
    , stand_(stand)
    , values_(std::move(values))
    , number_(number)
    , label_(std::move(label))
    , strict_(strict)
{
}

void Runner::run(const Plan &plan, LevelResult *level)
{
    level->level = levelName(plan.level);
    level->plan = plan.file;
    level->planHash = plan.hash;
    level->items = plan.items;
    say(QString("%1%2 (%3)").arg(label_, levelName(plan.level), plan.file));
    stand_.screens.clear();
    try {
        for (const Step &step : plan.steps) {
            level->steps << runStep(step, plan.level);
        }
    } catch (const BenchError &error) {
        level->screens = stand_.screens;
        level->faults << error.what();
        throw;
    }
    level->screens = stand_.screens;
}

StepResult Runner::runStep(const Step &step, int level)
{
    StepResult result;
    result.step = step;
    const auto actions = [&](const QStringList &list) {
        for (const QString &action : list) {
            const QString fault = stand_.act(action);
            if (!fault.isEmpty()) {
                result.faults << QString("%1: %2").arg(action, fault);
            }
        }
    };
    actions(step.before);
    Link::Request request;
    request.bytes = result.request = requestOf(step, values_, number_);
    request.timeoutMs = step.timeoutMs;
    request.tries = 1 + step.repeats;
    request.silence = step.expect == Step::Silence;
    request.framed = step.expect == Step::Payload || step.expect == Step::Battery
        || (step.expect == Step::Bytes && step.reply.startsWith(':'));
    if (!step.during.isEmpty()) {
        request.during = [&] { actions(step.during); };
    }
    result.answer = link_.exchange(request);
    judge(&result, level);
    actions(step.after);
    report(result);
    return result;
}

// What is wrong with the content of an answer, empty for nothing.
static QString mismatch(const Step &step, const Reply &reply, const QByteArray &bytes,
                        const Values &values)
{
    const QString wanted = expand(step.reply, values);
    const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(expand(step.reply, values, true)));
    const bool text = reply.kind == Reply::Text;
    const int millivolts = reply.kind == Reply::Battery ? reply.payload.toInt() * 10 : -1;
    switch (step.expect) {
    case Step::Payload:
        return !text && reply.payload == wanted.toLatin1() ? "" : "expected " + wanted;
    case Step::Text:
        return pattern.match(textOf(bytes)).hasMatch() ? "" : "expected the text " + wanted;
    case Step::Bytes:
        return bytes == wanted.toLatin1() ? "" : "expected " + printable(wanted.toLatin1());
    case Step::Battery:
        return millivolts >= step.minimumMv && millivolts <= step.maximumMv
            ? ""
            : QString("expected %1 to %2 mV").arg(step.minimumMv).arg(step.maximumMv);
    case Step::Silence:
        break;
    }
    return "answered where no answer is due";
}

void Runner::judge(StepResult *result, int level) const
{
    const Step &step = result->step;
    const Link::Answer &answer = result->answer;
    const Reply reply = result->reply = decode(answer.bytes);
    result->meaning = reply.kind == Reply::Damaged ? "damaged: " + printable(answer.bytes)
                                                   : meaningOf(reply.payload, step.code);
    QStringList &faults = result->faults;
    if (!answer.error.isEmpty()) {
        faults << answer.error;
    }
    if (reply.kind == Reply::None && step.expect == Step::Silence) {
        result->meaning = "no answer, as it must be";
        return;
    }
    if (reply.kind == Reply::None) {
        faults << QString("no answer to %1 requests of %2 ms (cable, power, port settings?)")
                      .arg(answer.tries)
                      .arg(step.timeoutMs);
        return;
    }
    const QString wrong = mismatch(step, reply, answer.bytes, values_);
    if (!wrong.isEmpty()) {
        faults << wrong;
    }
    const int number = level == Bi || step.addressed ? number_ : 0;
    if (reply.station >= 0 && reply.kind != Reply::Identity && step.raw.isEmpty()
        && reply.station != number) {
        faults << QString("answered as station %1 instead of %2").arg(reply.station).arg(number);
    }
    if (strict_ && !reply.noise.isEmpty()) {
        faults << "bytes before the reply: " + printable(reply.noise);
    }
    if (strict_ && answer.tries > 1) {
        faults << QString("answered only at request %1").arg(answer.tries);
    }
}

void Runner::report(const StepResult &result) const
{
    const bool bad = !result.faults.isEmpty();
    QString line =
        QString("%1 %2 %3  %4  %5 %6 ms")
            .arg(label_, bad ? "FAIL" : "ok  ", printable(result.request).leftJustified(28),
                 printable(result.answer.bytes).leftJustified(28), result.meaning.leftJustified(44))
            .arg(result.answer.ms, 7, 'f', 1);
    if (result.step.waitMs > 0) {
        line += QString(" (%1 of them prescribed)").arg(result.step.waitMs);
    }
    say(line, bad);
    for (const QString &fault : result.faults) {
        say(QString("%1      ^ %2").arg(label_, fault), true);
    }
}
