#include "station/runner.h"

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

LevelResult Runner::run(const Plan &plan)
{
    LevelResult level;
    level.level = levelName(plan.level);
    level.items = plan.items;
    say(QString("%1%2 (%3)").arg(label_, level.level, plan.file));
    stand_.screens.clear();
    for (const Step &step : plan.steps) {
        level.steps << runStep(step, plan.level);
    }
    level.screens = stand_.screens;
    return level;
}

StepResult Runner::runStep(const Step &step, int level)
{
    StepResult result;
    result.step = step;
    const auto actions = [&](const QStringList &list) {
        for (const QString &action : list) {
            const QString fault = perform(stand_, action);
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
    request.framed = step.expect == Step::Payload || step.expect == Step::Battery;
    if (!step.during.isEmpty()) {
        request.during = [&] { actions(step.during); };
    }
    result.answer = link_.exchange(request);
    judge(&result, level);
    if (onExchange) {
        onExchange(result);
    }
    actions(step.after);
    report(result);
    return result;
}

// Millivolts that a battery frame states, to 10 mV.
static int batteryMv(const Reply &reply)
{
    return reply.kind == Reply::Battery && reply.payload.size() == 4 ? reply.payload.toInt() * 10
                                                                     : -1;
}

void Runner::judge(StepResult *result, int level) const
{
    const Step &step = result->step;
    const Reply reply = result->reply = decode(result->answer.bytes);
    result->meaning = meaningOf(reply.payload, step.code);
    if (reply.kind == Reply::Damaged) {
        result->meaning = "damaged: " + printable(result->answer.bytes);
    }
    QStringList &faults = result->faults;
    if (!result->answer.error.isEmpty()) {
        faults << result->answer.error;
    }
    if (step.expect == Step::Silence) {
        if (reply.kind == Reply::None) {
            result->meaning = "no answer, as it must be";
        } else {
            faults << "answered where no answer is due";
        }
        return;
    }
    if (reply.kind == Reply::None) {
        faults << QString("no answer to %1 requests of %2 ms (cable, power, port settings?)")
                      .arg(result->answer.tries)
                      .arg(step.timeoutMs);
        return;
    }
    const QString wanted = expand(step.reply, values_, step.expect == Step::Text);
    if (step.expect == Step::Payload
        && (reply.kind == Reply::Text || reply.payload != wanted.toLatin1())) {
        faults << "expected " + wanted;
    }
    if (step.expect == Step::Text
        && !QRegularExpression(QRegularExpression::anchoredPattern(wanted))
                .match(textOf(result->answer.bytes))
                .hasMatch()) {
        faults << QString("expected the text %1").arg(wanted);
    }
    const int millivolts = batteryMv(reply);
    if (step.expect == Step::Battery
        && (millivolts < step.minimumMv || millivolts > step.maximumMv)) {
        faults << QString("expected %1 to %2 mV").arg(step.minimumMv).arg(step.maximumMv);
    }
    const int number = level == Bi || step.addressed ? number_ : 0;
    if (reply.station >= 0 && reply.kind != Reply::Identity && reply.station != number) {
        faults << QString("answered as station %1 instead of %2").arg(reply.station).arg(number);
    }
    if (strict_ && !reply.noise.isEmpty()) {
        faults << "bytes before the reply: " + printable(reply.noise);
    }
    if (strict_ && result->answer.tries > 1) {
        faults << QString("answered only at request %1").arg(result->answer.tries);
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
