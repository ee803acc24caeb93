#include "commands/commands.h"
#include "commands/interrupt.h"
#include "panel/bencherror.h"
#include "station/protocol.h"
#include "station/report.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QThread>

#include <memory>
#include <unistd.h>

namespace {

// One panel under test; several on a burn-in bus share the port.
struct Job {
    QString port;
    int number; // station
    Values values;
    Plan plan;
    Report report;
};

QString nameOf(const Job &job)
{
    return job.number ? QString("%1 station %2").arg(job.port).arg(job.number) : job.port;
}

// All panels of one port, one after the other.
void work(const QString &port, const QVector<Job *> &jobs, bool unattended, bool labels)
{
    Link link;
    QString error;
    const int level = jobs.first()->plan.level;
    const bool open = link.open(port, modeAt(level), &error);
    for (Job *job : jobs) {
        LevelResult result;
        result.level = levelName(level);
        if (open) {
            TerminalStand stand(nameOf(*job), unattended);
            Runner runner(link, stand, job->values, job->number,
                          labels ? nameOf(*job) + " " : QString());
            result = runner.run(job->plan);
        } else {
            result.faults << error;
            say(error, true);
        }
        job->report.levels << result;
    }
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

std::vector<Job> jobsOf(const QCommandLineParser &parser)
{
    std::vector<Job> jobs;
    const QStringList ports = parser.values("port");
    for (const QString &port : ports.isEmpty() ? QStringList("no port") : ports) {
        for (const QString &number : parser.value("station").split(',')) {
            jobs.push_back({port, number.toInt(), {{"station", number}}, {}, {}});
        }
    }
    for (const QString &set : parser.values("set")) {
        setValues(set, &jobs);
    }
    const QString level = parser.value("level").toLower();
    QStringList problems;
    for (Job &job : jobs) {
        job.plan = loadPlan(QString("%1/%2.json").arg(parser.value("plans"), level), job.values);
        job.report.title = "Level " + level.toUpper();
        job.report.subject = nameOf(job);
        problems += job.plan.problems;
    }
    problems.removeDuplicates();
    if (!problems.isEmpty()) {
        throw BenchError(problems.join('\n'));
    }
    return jobs;
}

// One thread a port; false if the application was told to quit meanwhile.
bool runAll(std::vector<Job> &jobs, bool unattended)
{
    QMap<QString, QVector<Job *>> ports;
    for (Job &job : jobs) {
        ports[job.port] << &job;
    }
    std::vector<std::unique_ptr<QThread>> threads;
    QEventLoop loop;
    int running = ports.size();
    for (auto port = ports.begin(); port != ports.end(); ++port) {
        const QString path = port.key();
        const QVector<Job *> list = port.value();
        const bool labels = jobs.size() > 1;
        threads.emplace_back(QThread::create([=] { work(path, list, unattended, labels); }));
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
    return running == 0;
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
    parser.addOptions(
        {{"port", "Serial device or pty; may be given several times.", "path"},
         {"level", "ict, t1, bi or t2.", "level"},
         {"station", "Station number, decimal; at BI several, with commas, on one bus.", "numbers",
          "0"},
         {"set", "What a plan's ${NAME} stands for; with commas, one VALUE for each panel.",
          "NAME=VALUE"},
         {"plans", "Folder of the plans.", "folder", planFolder()},
         {"report", "Folder for the reports, one inside it for each panel.", "folder",
          "out/station"},
         {"check", "Only check the plan."},
         {"yes", "Take everything asked of a person as done."}});
    parser.process(args);
    if ((!parser.isSet("port") && !parser.isSet("check"))
        || levelByName(parser.value("level")) < 0) {
        throw BenchError("which port, and which level (ict, t1, bi, t2)? Example: bench station "
                         "--port /dev/ttyUSB0 --level t1");
    }
    std::vector<Job> jobs = jobsOf(parser);
    if (parser.isSet("check")) {
        say("The plan may run");
        return 0;
    }
    quitOnInterrupt();
    if (!runAll(jobs, parser.isSet("yes"))) {
        fprintf(stderr, "interrupted; the panels stay as they are\n");
        _exit(130); // the threads wait for panels: nothing of theirs needs an orderly end
    }
    bool passed = true;
    for (const Job &job : jobs) {
        const QString folder =
            parser.value("report") + '/' + nameOf(job).mid(1).replace(QRegExp("[/ ]"), "-");
        const QString problem = writeReport(job.report, folder);
        if (!problem.isEmpty()) {
            throw BenchError(problem);
        }
        passed = passed && job.report.passed();
        say(QString("%1  %2  %3/report.html")
                .arg(job.report.passed() ? "PASSED" : "FAILED", nameOf(job), folder),
            !job.report.passed());
    }
    return passed ? 0 : 1;
}
