#include "commands/commands.h"
#include "commands/interrupt.h"
#include "commands/reporting.h"
#include "panel/bencherror.h"
#include "station/protocol.h"
#include "station/runner.h"
#include "store/handin.h"

#include <QEventLoop>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <memory>

namespace {

// One panel under test; several on a burn-in bus share the port.
struct Job {
    QString port;
    int number; // station
    Values values;
    Plan plan;
    Report report;
    QString folder; // of the report
};

struct View { // of the person who tests
    bool unattended, verbose, several;
};

QString nameOf(const Job &job)
{
    return job.number ? QString("%1 station %2").arg(job.port).arg(job.number) : job.port;
}

// All panels of one port, one after the other; those that it does not get to when told to stop have
// that as their fault. False if the port cannot be used.
bool work(const QString &port, const QVector<Job *> &jobs, const View &view)
{
    Link link;
    QString closed; // why
    try {
        link.open(port, jobs.first()->plan.level);
    } catch (const BenchError &error) {
        closed = error.what();
        say(closed, true);
    }
    for (Job *job : jobs) {
        job->report.begin(levelName(job->plan.level));
        if (!closed.isEmpty()) {
            job->report.fault(closed);
            continue;
        }
        TerminalStand stand(nameOf(*job), view.unattended);
        const QString label = view.several ? nameOf(*job) + " " : QString();
        Runner runner(link, stand, job->values, {job->number, label, false, view.verbose});
        try {
            runner.run(job->plan, &job->report);
        } catch (const BenchError &wrong) {
            say(nameOf(*job) + ": " + wrong.what(), true);
        }
    }
    return closed.isEmpty();
}

// "name=value" or "name=value,value,...": one for each panel.
void setValues(const QString &text, std::vector<Job> *jobs)
{
    const QString name = text.section('=', 0, 0);
    const QStringList values = text.section('=', 1).split(',');
    if (!text.contains('=') || (values.size() != 1 && values.size() != int(jobs->size()))) {
        throw BenchError(QString("--set %1: one value, or one for each of the %2 panels, is needed")
                             .arg(text)
                             .arg(jobs->size()));
    }
    for (size_t i = 0; i < jobs->size(); ++i) {
        (*jobs)[i].values[name] = values.value(values.size() == 1 ? 0 : int(i));
    }
}

// A name that neither this plan nor any of the bench's own uses is a slip.
QStringList unusedValues(const Job &job)
{
    QStringList problems;
    QSet<QString> known = job.plan.uses;
    known.unite({"model", "crc", "version", "semiId", "machineId", "station"});
    for (const QString &name : job.values.keys()) {
        if (!known.contains(name)) {
            QStringList names = known.values();
            names.sort();
            problems
                << QString("--set %1: no step uses it; known are %2").arg(name, names.join(", "));
        }
    }
    return problems;
}

QStringList load(const QCommandLineParser &parser, Job *job)
{
    const QString level = parser.value("level").toLower();
    const QString file = parser.isSet("plan")
        ? parser.value("plan")
        : QString("%1/%2.json").arg(parser.value("plans"), level);
    job->plan = loadPlan(file, job->values);
    job->report = reportOf(parser, nameOf(*job), job->values);
    QStringList problems = job->plan.problems + unusedValues(*job);
    if (!level.isEmpty() && job->plan.level >= 0 && job->plan.level != levelByName(level)) {
        problems << QString("%1 is a plan of level %2, not of %3")
                        .arg(file, levelName(job->plan.level), level.toUpper());
    }
    return problems;
}

std::vector<Job> jobsOf(const QCommandLineParser &parser)
{
    std::vector<Job> jobs;
    const QStringList ports = parser.values("port");
    for (const QString &port : ports.isEmpty() ? QStringList("no port") : ports) {
        for (const QString &number : parser.value("station").split(',')) {
            bool valid = false;
            jobs.push_back({port, number.toInt(&valid), {{"station", number}}, {}, {}, {}});
            if (!valid || jobs.back().number < 0 || jobs.back().number > 255) {
                throw BenchError("--station takes numbers from 0 to 255, not " + number);
            }
        }
    }
    for (const QString &set : parser.values("set")) {
        setValues(set, &jobs);
    }
    QStringList problems;
    for (Job &job : jobs) {
        problems += load(parser, &job);
    }
    problems.removeDuplicates();
    if (!problems.isEmpty()) {
        throw BenchError(problems.join('\n'));
    }
    return jobs;
}

// One thread a port. False if one of the ports cannot be used.
bool runAll(std::vector<Job> &jobs, const View &view)
{
    QMap<QString, QVector<Job *>> ports;
    for (Job &job : jobs) {
        ports[job.port] << &job;
    }
    std::atomic<bool> usable{true};
    std::vector<std::unique_ptr<QThread>> threads;
    QEventLoop loop;
    int running = ports.size();
    for (auto port = ports.begin(); port != ports.end(); ++port) {
        threads.emplace_back(
            QThread::create([&usable, &view, path = port.key(), list = port.value()] {
                if (!work(path, list, view)) {
                    usable = false;
                }
            }));
        QObject::connect(threads.back().get(), &QThread::finished, &loop, [&] {
            if (--running == 0) {
                loop.quit();
            }
        });
    }
    for (auto &thread : threads) {
        thread->start();
    }
    loop.exec();
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
    QStringList problems;
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
            problems << error.what();
        }
        records[job.folder] = recordOf(job.report);
        say(QString("%1  %2  %3").arg(job.report.passed() ? "PASSED" : "FAILED", nameOf(job), file),
            !job.report.passed());
    }
    if (jobs.size() > 1) {
        problems << writePage(reports, base + "/report.html");
        say("All in one page: " + base + "/report.html");
    }
    storeRuns(records, store, base);
    problems.removeAll({});
    for (const QString &problem : problems) {
        say(problem, true);
    }
    return problems.isEmpty();
}

} // namespace

int runStation(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription("Tests panels at their PC link with the plan of a level, "
                                     "several ports at once, and at BI several panels of one bus "
                                     "by station number.\nWhat a person must do is asked on the "
                                     "terminal. Exit status 0 only if every panel passed.\n"
                                     "Example: bench station --port /dev/ttyUSB0 --level t1 --set "
                                     "model=KLV-100 --set machineId=20254711T12345678");
    parser.addHelpOption();
    parser.addOptions(reportOptions("out/station"));
    parser.addOptions(
        {{"port", "Serial device or pty; may be given several times.", "path"},
         {"level", "ict, t1, bi or t2.", "level"},
         {"station", "Station number, decimal; at BI several, with commas, on one bus.", "numbers",
          "0"},
         {"set", "What a plan's ${NAME} stands for; with commas, one VALUE for each panel.",
          "NAME=VALUE"},
         {"plan", "This plan instead, for example a record of `bench panel --record`.", "file"},
         {"check", "Only check the plan."},
         {"yes", "Take everything asked of a person as done."}});
    parser.process(args);
    const bool which =
        parser.isSet("level") ? levelByName(parser.value("level")) >= 0 : parser.isSet("plan");
    if ((!parser.isSet("port") && !parser.isSet("check")) || !which) {
        throw BenchError("which port, and which level (ict, t1, bi, t2)? Example: bench station "
                         "--port /dev/ttyUSB0 --level t1");
    }
    std::vector<Job> jobs = jobsOf(parser);
    if (parser.isSet("check")) {
        say("The plan may run");
        return 0;
    }
    quitOnInterrupt();
    for (Job &job : jobs) {
        job.folder = beginReport(job.report, parser.value("report"));
    }
    const bool usable =
        runAll(jobs, {parser.isSet("yes"), parser.isSet("verbose"), jobs.size() > 1});
    const bool reported = report(jobs, parser.value("report"), storeOf(parser));
    const bool passed = !interrupted() && std::all_of(jobs.begin(), jobs.end(), [](const Job &job) {
        return job.report.passed();
    });
    sayVerdict(passed);
    return !usable || !reported ? 2 : !passed;
}
