#include "commands/commandline.h"
#include "commands/commands.h"
#include "commands/reporting.h"
#include "panel/bencherror.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/wait.h"
#include "station/protocol.h"
#include "station/runner.h"
#include "store/handin.h"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>

namespace {

// One panel under test; several on a burn-in bus share the port.
struct Job {
    QString port, name;
    Runner::Options options;
    Values values;
    Plan plan = {};
    Report report = {};
    QString folder = {}; // of the report
    bool tested = false; // else there is nothing to say about the panel
};

// All panels of one port, one after the other; those that it does not get to, told to stop or the
// port having failed, have that as their fault. False if the port cannot be used.
bool work(const QVector<Job *> &jobs, bool unattended)
{
    Link link;
    QString over; // why no more panels are tested
    bool usable = true;
    try {
        link.open(jobs.first()->port, jobs.first()->plan.level);
    } catch (const BenchError &error) {
        over = error.what();
        usable = false;
        say(over, true);
    }
    for (Job *job : jobs) {
        job->report.begin(levelName(job->plan.level));
        if (!over.isEmpty()) {
            job->report.fault(over);
            continue;
        }
        TerminalStand stand(job->name, job->plan.actions, unattended);
        Runner runner(link, stand, job->values, job->options);
        try {
            runner.run(job->plan, &job->report);
        } catch (const BenchError &wrong) {
            say(job->name + ": " + wrong.what(), true);
        }
        job->tested = runner.asked();
        over = QThread::currentThread()->isInterruptionRequested() ? "interrupted" : link.failure();
    }
    return usable;
}

// "name=value" or "name=value,value,...": one for each panel.
void setValues(const QString &text, std::vector<Job> *jobs)
{
    const QString name = text.section('=', 0, 0);
    const QStringList values = text.section('=', 1).split(',');
    if (!text.contains('=') || (values.size() != 1 && values.size() != int(jobs->size())))
        throw BenchError(QString("--set %1: one value, or one for each of the %2 panels, is needed")
                             .arg(text)
                             .arg(jobs->size()));
    for (size_t i = 0; i < jobs->size(); ++i)
        (*jobs)[i].values[name] = values.value(values.size() == 1 ? 0 : int(i));
}

QStringList load(const QCommandLineParser &parser, Job *job)
{
    const QString level = parser.value("level").toLower();
    const QString file = parser.isSet("plan")
        ? parser.value("plan")
        : QString("%1/%2.json").arg(parser.value("plans"), level);
    job->plan = loadPlan(file, job->values);
    job->report = reportOf(parser, job->name, job->values);
    QStringList problems = job->plan.problems;
    if (!level.isEmpty() && job->plan.level >= 0 && job->plan.level != levelByName(level))
        problems << QString("%1 is a plan of level %2, not of %3")
                        .arg(file, levelName(job->plan.level), level.toUpper());
    // A name that neither this plan nor any of the bench's own uses is a slip.
    QStringList known = {"model", "crc", "version", "semiId", "machineId", "station"};
    known += job->plan.uses.values();
    known.removeDuplicates();
    known.sort();
    for (const QString &name : job->values.keys()) {
        if (!known.contains(name))
            problems
                << QString("--set %1: no step uses it; known are %2").arg(name, known.join(", "));
    }
    return problems;
}

// The port and the station number of each panel. At burn-in a port is a bus, with a panel of each
// number; at the other levels it is one panel, and the number what that is given.
QVector<QPair<QString, int>> panelsOf(const CommandLine &parser)
{
    const QString level = parser.isSet("level")
        ? parser.value("level")
        : readJson(parser.value("plan"))["level"].toString();
    const QVector<int> numbers = parser.numbers("station", 0, 255);
    const QStringList ports = parser.isSet("port") ? parser.values("port") : QStringList("no port");
    const bool bus = levelByName(level) == Bi;
    if (!bus && numbers.size() != 1 && numbers.size() != ports.size())
        throw BenchError("--station: one number, or one for each --port, is needed; only at BI do "
                         "several panels share a port");
    QVector<QPair<QString, int>> panels;
    for (int i = 0; i < ports.size(); ++i) {
        for (const int number : bus || numbers.size() == 1 ? numbers : numbers.mid(i, 1))
            panels << qMakePair(ports[i], number);
    }
    return panels;
}

std::vector<Job> jobsOf(const CommandLine &parser)
{
    std::vector<Job> jobs;
    const auto panels = panelsOf(parser);
    for (const auto &[port, number] : panels) {
        const QString name = number ? QString("%1 station %2").arg(port).arg(number) : port;
        const QString label = panels.size() > 1 ? name + ' ' : QString();
        jobs.push_back({port,
                        name,
                        {number, label, false, parser.isSet("verbose")},
                        {{"station", QString::number(number)}}});
    }
    for (const QString &set : parser.values("set"))
        setValues(set, &jobs);
    QStringList problems;
    for (Job &job : jobs)
        problems += load(parser, &job);
    problems.removeDuplicates();
    if (!problems.isEmpty())
        throw BenchError(problems.join('\n'));
    return jobs;
}

// One thread a port. False if one of the ports cannot be used.
bool runAll(std::vector<Job> &jobs, bool unattended)
{
    QMap<QString, QVector<Job *>> ports;
    for (Job &job : jobs)
        ports[job.port] << &job;
    std::atomic<bool> usable{true};
    std::vector<std::unique_ptr<QThread>> threads;
    for (const QVector<Job *> &list : ports) {
        threads.emplace_back(QThread::create([&usable, unattended, list] {
            if (!work(list, unattended))
                usable = false;
        }));
        threads.back()->start();
    }
    const auto over = [&] {
        return interrupted() || std::all_of(threads.begin(), threads.end(), [](const auto &thread) {
                   return thread->isFinished();
               });
    };
    waitFor(over, std::numeric_limits<int>::max());
    for (auto &thread : threads) { // still running when the application was told to quit
        thread->requestInterruption();
        thread->exit(-1);
        thread->wait();
    }
    return usable;
}

// False if one of the reports could not be written; the verdicts are said all the same.
bool report(std::vector<Job> &jobs, const QString &base, const QString &store)
{
    bool written = true;
    const auto problem = [&](const QString &text) {
        written = false;
        say(text, true);
    };
    QVector<Report> reports;
    QMap<QString, QJsonObject> records; // by the folder of the report
    for (Job &job : jobs) {
        job.report.ended = QDateTime::currentDateTime();
        reports << job.report;
        QString file = "no report";
        try {
            job.folder = writeReport(job.report, base, job.folder);
            file = job.folder + "/report.html";
        } catch (const BenchError &error) {
            problem(error.what());
        }
        if (job.tested)
            records[job.folder] = recordOf(job.report);
        say(QString("%1  %2  %3").arg(job.report.passed() ? "PASSED" : "FAILED", job.name, file),
            !job.report.passed());
    }
    const QString wrong = jobs.size() > 1 ? writePage(reports, base + "/report.html") : QString();
    if (!wrong.isEmpty())
        problem(wrong);
    else if (jobs.size() > 1)
        say("All in one page: " + base + "/report.html");
    if (!records.isEmpty())
        storeRuns(records, store, base);
    return written;
}

CommandLine commandLine(const QStringList &args)
{
    return {
        args,
        "Tests panels at their PC link with the plan of a level, several ports at once, and at BI "
        "several panels of one bus by station number.\nWhat a person must do is asked on the "
        "terminal. Exit status 0 only if every panel passed.\n"
        "Example: bench station --port /dev/ttyUSB0 --level t1 --set model=KLV-100 --set "
        "machineId=20254711T12345678",
        reportOptions("out/station")
            + QList<QCommandLineOption>{
                {"port", "Serial device or pty; may be given several times.", "path"},
                {"level", "ict, t1, bi or t2.", "level"},
                {"station",
                 "Station number, decimal. With commas at BI all on the bus of each port, at other "
                 "levels one for each port in their order.",
                 "numbers", "0"},
                {"set", "What a plan's ${NAME} stands for; with commas, one VALUE for each panel.",
                 "NAME=VALUE"},
                {"plan", "This plan instead, for example a record of `bench panel --record`.",
                 "file"},
                {"check", "Only check the plan."},
                {"yes", "Take everything asked of a person as done."}}};
}

} // namespace

int runStation(const QStringList &args)
{
    const CommandLine parser = commandLine(args);
    const bool which =
        parser.isSet("level") ? levelByName(parser.value("level")) >= 0 : parser.isSet("plan");
    if ((!parser.isSet("port") && !parser.isSet("check")) || !which)
        throw BenchError("which port, and which level (ict, t1, bi, t2)? Example: bench station "
                         "--port /dev/ttyUSB0 --level t1");
    std::vector<Job> jobs = jobsOf(parser);
    if (parser.isSet("check")) {
        say("The plan may run");
        return 0;
    }
    quitOnInterrupt();
    for (Job &job : jobs)
        job.folder = beginReport(job.report, parser.value("report"));
    const bool usable = runAll(jobs, parser.isSet("yes"));
    const bool reported = report(jobs, parser.value("report"), storeOf(parser));
    const bool passed = !interrupted() && std::all_of(jobs.begin(), jobs.end(), [](const Job &job) {
        return job.report.passed();
    });
    sayVerdict(passed);
    return !usable || !reported ? 2 : !passed;
}
