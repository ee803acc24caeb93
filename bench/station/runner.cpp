#include "station/runner.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "panel/gauges.h"
#include "station/protocol.h"

#include <QTimer>

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
        const qint64 ms = plan.steps[i]["wait"].toInt() + exchangeMs;
        all += ms;
        if (i <= step)
            done += i < step ? ms : qMin(ms, attempt_.elapsed());
    }
    const int filled = int(width * done / qMax<qint64>(1, all));
    showStatus(QString("  step %1 of %2  %3 [%4%5] %6 s left")
                   .arg(step + 1)
                   .arg(plan.steps.size())
                   .arg(plan.steps[step]["name"].toString().left(30), -30)
                   .arg(QString(filled, '#'), QString(width - filled, '.'))
                   .arg((all - done + 999) / 1000));
}

// Of what the steps took beyond what is prescribed: those that cover an item and need nobody
// between request and answer.
static double medianOverheadMs(const Plan &plan, const QJsonArray &records)
{
    QVector<double> overheads;
    for (int i = 0; i < records.size(); ++i) {
        const Step &step = plan.steps[i];
        if (!step["items"].toArray().isEmpty() && step["during"].toArray().isEmpty())
            overheads << records[i]["ms"].toDouble() - step["wait"].toInt();
    }
    return overheads.isEmpty() ? 0 : median(overheads);
}

void Runner::runSteps(const Plan &plan, QJsonObject *level)
{
    QJsonArray records;
    QTimer tick; // fires while the link waits
    QObject::connect(&tick, &QTimer::timeout, [&] { showProgress(plan, records.size()); });
    if (options_.label.isEmpty())
        tick.start(100);
    while (records.size() < plan.steps.size() && dead_.isEmpty()) {
        records << runStep(plan.steps[records.size()], plan.level);
        showStatus({});
        (*level)["steps"] = records;
        (*level)["medianOverheadMs"] = medianOverheadMs(plan, records);
        tell(records.last().toObject(),
             QString("%1/%2").arg(records.size(), 2).arg(plan.steps.size()));
    }
}

void Runner::run(const Plan &plan, Report *report)
{
    QJsonObject &level = report->levels.last();
    level["plan"] = plan.file;
    level["planHash"] = textOf(plan.hash);
    level["items"] = QJsonArray::fromStringList(plan.items);
    say(QString("%1%2 (%3), %4 steps")
            .arg(options_.label, levelName(plan.level), plan.file)
            .arg(plan.steps.size()));
    stand_.screens.clear();
    try {
        runSteps(plan, &level);
    } catch (const BenchError &error) {
        showStatus({});
        report->take(stand_.screens);
        report->fault(error.what());
        throw;
    }
    report->take(stand_.screens);
    if (!dead_.isEmpty()) {
        report->fault(dead_);
        say(options_.label + dead_, true);
    }
}

QJsonObject Runner::runStep(const Step &step, int level)
{
    QJsonObject record = attempt(step, level);
    const auto wrong = [&] { return textsOf(record["faults"]); };
    while (!wrong().isEmpty() && dead_.isEmpty()
           && stand_.wantsAgain(step["name"].toString() + ": " + wrong().join("; "))) {
        const QStringList earlier = textsOf(record["earlier"]) + wrong();
        record = attempt(step, level);
        record["earlier"] = QJsonArray::fromStringList(earlier);
    }
    return record;
}

// What went wrong.
QStringList Runner::act(const QJsonValue &actions)
{
    QStringList faults;
    for (const QString &action : textsOf(actions)) {
        const QString fault = stand_.act(action);
        if (!fault.isEmpty())
            faults << QString("%1: %2").arg(action, fault);
    }
    return faults;
}

static QByteArray bytesOf(const Step &step, const Values &values, int number)
{
    const QString raw = step["raw"].toString();
    return raw.isEmpty()
        ? requestOf(step["code"].toString().toLatin1(), expand(step["argument"].toString(), values),
                    step["addressed"].toBool() ? number : 0, values["model"])
        : raw.toLatin1();
}

QJsonObject Runner::attempt(const Step &step, int level)
{
    attempt_.start();
    QStringList faults = act(step["before"]);
    Link::Request request;
    request.bytes = bytesOf(step, values_, options_.number);
    request.timeoutMs = step["timeout"].toInt();
    request.tries = 1 + step["repeats"].toInt();
    request.silence = step["silence"].toBool();
    request.framed = expectsFrame(step);
    if (!step["during"].toArray().isEmpty())
        request.during = [&] { faults += act(step["during"]); };
    const Link::Answer answer = link_.exchange(request);
    const Verdict verdict = judge(step, answer, values_, {level, options_.number, options_.strict});
    faults += verdict.faults;
    asked_ = asked_ || answer.tries > 0;
    heard_ = heard_ || !answer.bytes.isEmpty();
    if (verdict.unanswered)
        dead_ = whyDead(answer, level);
    const Command *command = findCommand(step["code"].toString().toLatin1());
    if (command && command->settleS && verdict.reply.payload == command->pass())
        faults += act(QJsonArray{QString("settle %1").arg(command->settleS)});
    if (dead_.isEmpty())
        faults += act(step["after"]);
    return {{"items", step["items"]},
            {"itemNames", step["itemNames"]},
            {"name", step["name"]},
            {"code", step["code"]},
            {"request", printable(request.bytes)},
            {"reply", printable(answer.bytes)},
            {"meaning", verdict.meaning},
            {"values", verdict.measured},
            {"ms", answer.ms},
            {"prescribedMs", step["wait"]},
            {"tries", answer.tries},
            {"passed", faults.isEmpty()},
            {"faults", QJsonArray::fromStringList(faults)},
            {"earlier", QJsonArray()},
            {"advice", faults.isEmpty() ? QString() : verdict.advice}};
}

// Why there is no use in going on after a step without an answer; empty if there is.
QString Runner::whyDead(const Link::Answer &answer, int level)
{
    if (!answer.error.isEmpty())
        return answer.error;
    if (!heard_)
        return "nothing was heard from the panel. Look at the cable and which of the panel's "
               "ports it is in; the panel's power; whether it is at another level, or already "
               "had its end check (it then listens again after a restart)";
    Link::Request request{shortRequest(0, "8000"), 2000, 2, true, false, {}};
    const bool silent = findCommand("8000")->allowedAt(level)
        ? link_.exchange(request).bytes.isEmpty()
        : answer.tries > 1; // at burn-in nothing can be asked that leaves no trace
    return silent ? "the panel has stopped answering. Look at its power and at the cable" : "";
}

void Runner::tell(const QJsonObject &record, const QString &place) const
{
    const bool bad = !record["passed"].toBool();
    const auto text = [&](const char *key, int width) {
        return record[key].toString().leftJustified(width);
    };
    QString line = QString("%1 %2 ").arg(options_.label, bad ? "FAIL" : "ok  ");
    line += options_.verbose
        ? text("request", 28) + "  " + text("reply", 28) + "  " + text("meaning", 44)
        : place + "  " + text("name", 44);
    line += QString(" %1 ms").arg(record["ms"].toDouble(), 7, 'f', 1);
    if (record["prescribedMs"].toInt() > 0)
        line += QString(" (%1 of them prescribed)").arg(record["prescribedMs"].toInt());
    say(line, bad);
    for (const QString &fault : textsOf(record["faults"]))
        say(QString("%1      ^ %2").arg(options_.label, fault), true);
    const QString advice = record["advice"].toString();
    if (!advice.isEmpty())
        say(QString("%1        look at: %2").arg(options_.label, advice));
}
