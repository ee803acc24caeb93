#include "station/runner.h"

#include "panel/bencherror.h"
#include "station/protocol.h"

#include <QTimer>
#include <algorithm>

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

Runner::Runner(Link &link, Stand &stand, Values values, Options options)
    : link_(link)
    , stand_(stand)
    , values_(std::move(values))
    , options_(std::move(options))
{
}

// Where the run is, and what is left of the waits that the tests prescribe.
void Runner::showProgress(const Plan &plan, int step) const
{
    constexpr int exchangeMs = 100, width = 24; // of an exchange without a wait; of the bar
    qint64 all = 0, done = 0;
    for (int i = 0; i < plan.steps.size(); ++i) {
        const qint64 ms = plan.steps[i].waitMs + exchangeMs;
        all += ms;
        done += i < step ? ms : i == step ? qMin(ms, attempt_.elapsed()) : 0;
    }
    const int filled = int(width * done / qMax<qint64>(1, all));
    showStatus(QString("  step %1 of %2  %3 [%4%5] %6 s left")
                   .arg(step + 1)
                   .arg(plan.steps.size())
                   .arg(plan.steps[step].name.left(30), -30)
                   .arg(QString(filled, '#'), QString(width - filled, '.'))
                   .arg((all - done + 999) / 1000));
}

void Runner::run(const Plan &plan, LevelResult *level)
{
    level->level = levelName(plan.level);
    level->plan = plan.file;
    level->planHash = plan.hash;
    level->items = plan.items;
    say(QString("%1%2 (%3), %4 steps")
            .arg(options_.label, levelName(plan.level), plan.file)
            .arg(plan.steps.size()));
    stand_.screens.clear();
    QTimer tick; // fires while the link waits
    QObject::connect(&tick, &QTimer::timeout, [&] { showProgress(plan, level->steps.size()); });
    if (options_.label.isEmpty()) {
        tick.start(100);
    }
    try {
        for (int i = 0; i < plan.steps.size() && dead_.isEmpty(); ++i) {
            const StepResult result = runStep(plan.steps[i], plan.level);
            showStatus({});
            level->steps << result;
            report(result, QString("%1/%2").arg(i + 1, 2).arg(plan.steps.size()));
        }
    } catch (const BenchError &error) {
        showStatus({});
        level->screens = stand_.screens;
        level->faults << error.what();
        throw;
    }
    level->screens = stand_.screens;
    if (!dead_.isEmpty()) {
        level->faults << dead_;
        say(options_.label + dead_, true);
    }
}

StepResult Runner::runStep(const Step &step, int level)
{
    StepResult result = attempt(step, level);
    while (!result.faults.isEmpty() && dead_.isEmpty()
           && stand_.wantsAgain(step.name + ": " + result.faults.join("; "))) {
        const QStringList earlier = result.earlier + result.faults;
        result = attempt(step, level);
        result.earlier = earlier;
    }
    return result;
}

void Runner::act(const QStringList &actions, StepResult *result)
{
    for (const QString &action : actions) {
        const QString fault = stand_.act(action);
        if (!fault.isEmpty()) {
            result->faults << QString("%1: %2").arg(action, fault);
        }
    }
}

StepResult Runner::attempt(const Step &step, int level)
{
    StepResult result;
    result.step = step;
    attempt_.start();
    act(step.before, &result);
    Link::Request request;
    request.bytes = result.request = requestOf(step, values_, options_.number);
    request.timeoutMs = step.timeoutMs;
    request.tries = 1 + step.repeats;
    request.silence = step.expect == Step::Silence;
    request.framed = step.expect == Step::Payload || step.expect == Step::Battery
        || (step.expect == Step::Bytes && step.reply.startsWith(':'));
    if (!step.during.isEmpty()) {
        request.during = [&] { act(step.during, &result); };
    }
    result.answer = link_.exchange(request);
    judge(&result, level, values_, options_.number, options_.strict);
    heard_ = heard_ || !result.answer.bytes.isEmpty();
    if (result.unanswered()) {
        dead_ = whyDead(result, level);
    }
    const Command *command = findCommand(step.code);
    if (command && command->settleS && result.reply.payload == command->pass()) {
        const QString fault = stand_.settle(command->settleS);
        result.faults += fault.isEmpty() ? QStringList() : QStringList(fault);
    }
    if (dead_.isEmpty()) {
        act(step.after, &result);
    }
    return result;
}

// Why there is no use in going on after a step without an answer; empty if there is.
QString Runner::whyDead(const StepResult &result, int level)
{
    if (!result.answer.error.isEmpty()) {
        return result.answer.error;
    }
    if (!heard_) {
        return "nothing was heard from the panel. Look at the cable and which of the panel's "
               "ports it is in; the panel's power; whether it is at another level, or already "
               "had its end check (it then listens again after a restart)";
    }
    const Command *presence = findCommand("8000");
    Link::Request request{shortRequest(0, "8000"), 2000, 2, true, false, {}};
    const bool silent = presence->allowedAt(level)
        ? link_.exchange(request).bytes.isEmpty()
        : result.answer.tries > 1; // at burn-in nothing can be asked that leaves no trace
    return silent ? "the panel has stopped answering. Look at its power and at the cable" : "";
}

void Runner::report(const StepResult &result, const QString &place) const
{
    const bool bad = !result.faults.isEmpty();
    QString line = QString("%1 %2 ").arg(options_.label, bad ? "FAIL" : "ok  ");
    if (options_.verbose) {
        line += QString("%1  %2  %3")
                    .arg(printable(result.request).leftJustified(28),
                         printable(result.answer.bytes).leftJustified(28),
                         result.meaning.leftJustified(44));
    } else {
        line += place + "  " + result.step.name.leftJustified(44);
    }
    line += QString(" %1 ms").arg(result.answer.ms, 7, 'f', 1);
    if (result.step.waitMs > 0) {
        line += QString(" (%1 of them prescribed)").arg(result.step.waitMs);
    }
    say(line, bad);
    for (const QString &fault : result.faults) {
        say(QString("%1      ^ %2").arg(options_.label, fault), true);
    }
    const QString advice = result.advice();
    if (!advice.isEmpty()) {
        say(QString("%1        look at: %2").arg(options_.label, advice));
    }
}
