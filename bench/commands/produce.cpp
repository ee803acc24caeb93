#include "commands/commandline.h"
#include "commands/commands.h"
#include "commands/reporting.h"
#include "fixture/fixture.h"
#include "panel/board.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/runner.h"
#include "station/virtualstand.h"
#include "store/handin.h"

#include <QJsonArray>

namespace {

// One panel from factory-new on, level after level as its own level file says, until it is
// released. Its row of production.json has a title, the plans, one for each level that it gets to,
// and the values that the station gives it.
class Production {
public:
    Production(const QJsonObject &row, const QString &plans, const PanelOptions &options,
               const QStringList &faults);
    void run(Report *report);
    bool verbose = false; // shows requests and answers

private:
    QString afterRelease();
    void runLevel(int level, Report *report);

    QString plans_;
    VirtualPanel panel_;
    Fixture fixture_;
    VirtualStand stand_;
    Values values_;
    QMap<int, Plan> levels_;
};

Production::Production(const QJsonObject &row, const QString &plans, const PanelOptions &options,
                       const QStringList &faults)
    : plans_(plans)
    , panel_(options)
    , fixture_(panel_)
    , stand_(panel_, &fixture_)
{
    panel_.factoryNew();
    values_ = identityOf(panel_);
    addTo(&values_, row["values"].toObject());
    stand_.files.values = values_;
    panel_.touchPanel() = TouchPanel::ofPanel(values_.value("station").toUInt());
    for (const QString &fault : faults)
        fixture_.setFault(fault);
    for (const QJsonValue &path : row["plans"].toArray()) {
        Plan plan = loadPlan(plans + '/' + path.toString(), values_);
        if (!plan.problems.isEmpty())
            throw BenchError(plan.problems.join('\n'));
        plan.file = path.toString();
        levels_[plan.level] = plan;
    }
}

void Production::runLevel(int level, Report *report)
{
    if (!levels_.contains(level))
        return report->fault(QString("nobody has a plan for level %1").arg(levelName(level)));
    const Plan &plan = levels_[level];
    const QString fault = stand_.powerOn();
    if (!fault.isEmpty())
        return report->fault(fault);
    Link link;
    link.open(stand_.port(level), level);
    const bool sound = fixture_.faults().isEmpty();
    stand_.stateFolder = sound ? QFileInfo(plans_ + '/' + plan.file).path() : QString();
    const int number = level == Bi
        ? stand_.files.read("/usr/local/ict/HMI_STATION_NUM.txt").toInt(nullptr, 16)
        : values_.value("station").toInt();
    Runner(link, stand_, values_, {number, {}, true, verbose}).run(plan, report);
    QJsonObject &result = report->levels.last();
    const QByteArray log = stand_.files.read("/usr/local/ict/HMI_Factory_Resume.txt");
    result["log"] = textOf(log).remove(QChar(0));
    const QJsonArray steps = sound ? QJsonArray() : result["steps"].toArray();
    for (const QString &wrong : stand_.files.itemFaults(level, steps, 5000))
        report->fault(wrong);
    panel_.powerOff();
}

// A whole machine then starts the product application and not the agent. Empty, or what is wrong.
QString Production::afterRelease()
{
    if (!panel_.board())
        return {};
    panel_.powerOn();
    const bool started =
        waitFor([&] { return !panel_.board()->run("pidof window").isEmpty(); }, 60000);
    const bool agent = !panel_.board()->run("pidof ict-agent").isEmpty();
    panel_.powerOff();
    return started && !agent ? ""
                             : "the released panel does not start the product application alone";
}

void Production::run(Report *report)
{
    const PanelFiles &files = stand_.files;
    int before = -1;
    while (!files.released() && files.level() != before) {
        before = files.level();
        report->begin(levelName(before));
        runLevel(before, report);
        const QString wrong = files.released() ? afterRelease() : QString();
        if (!wrong.isEmpty())
            report->fault(wrong);
        else if (!files.released() && files.level() == before)
            report->fault("the panel stays at this level");
        const QJsonObject &level = report->levels.last();
        for (const QString &fault : textsOf(level["faults"]))
            say("FAIL " + fault, true);
        if (level["medianOverheadMs"].toDouble() > 0)
            say(QString("     %1 ms an item over the prescribed waits in the median (limit 120)")
                    .arg(level["medianOverheadMs"].toDouble(), 0, 'f', 1));
    }
}

// One panel. Its report is written whatever happens; false if the bench could not work, which is
// said.
bool produce(const QCommandLineParser &parser, const QJsonObject &row, int number, Report *report)
{
    const QString base = parser.value("report");
    const QString folder = beginReport(*report, base);
    PanelOptions options;
    options.folder = parser.value("folder");
    if (!options.folder.isEmpty() && number > 0)
        options.folder += QString("-%1").arg(number + 1);
    bool worked = true;
    try {
        say(report->subject);
        Production production(row, parser.value("plans"), options, parser.values("fault"));
        production.verbose = parser.isSet("verbose");
        production.run(report);
    } catch (const BenchError &error) {
        worked = false;
        if (report->faults().isEmpty()) {
            report->begin("the bench");
            report->fault(error.what());
        }
        fprintf(stderr, "bench produce: %s\n", error.what());
    }
    report->ended = QDateTime::currentDateTime();
    for (const QString &fault : report->faults())
        say(fault, true);
    const QString place = writeReport(*report, base, folder);
    say(QString("%1. Report: %2/report.html (and report.json, junit.xml)")
            .arg(report->passed() ? "PASSED" : "FAILED", place),
        !report->passed());
    storeRuns({{place, recordOf(*report)}}, storeOf(parser), base);
    return worked;
}

} // namespace

int runProduce(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Makes a factory-new virtual panel and takes it through ICT, T1, BI and T2, one power "
        "cycle after the other,\nuntil it is released; a second one by the short way from T1; a "
        "third by forced changes. production.json among the plans says which.\n"
        "Exit status 0 only if every reply, every screen and every file on the panels is what it "
        "must be.",
        reportOptions("out/produce")
            + QList<QCommandLineOption>{
                {"tour",
                 "Only the last: identity, presence, failing end check and forced change of each "
                 "level."},
                {"single", "Only the first panel."},
                {"fault", "Begin with this fault; may be given several times.", "name[:value]"},
                {"folder", "Keep the panel's files in this folder; it is emptied first.", "folder"},
            });
    quitOnInterrupt();
    const QString file = parser.value("plans") + "/production.json";
    const QJsonArray rows = readJson(file)["panels"].toArray();
    if (rows.isEmpty())
        throw BenchError(file + ": \"panels\" must be a list with a row for each panel");
    const int first = parser.isSet("tour") ? rows.size() - 1 : 0;
    const int end = parser.isSet("single") ? first + 1 : rows.size();
    QVector<Report> reports;
    bool worked = true, passed = true;
    for (int i = first; i < end && worked; ++i) {
        Values given;
        addTo(&given, rows[i]["values"].toObject());
        reports << reportOf(parser, rows[i]["title"].toString(), given);
        worked = produce(parser, rows[i].toObject(), i, &reports.last());
        passed = passed && reports.last().passed();
    }
    const QString page = parser.value("report") + "/report.html";
    const QString problem = writePage(reports, page);
    say(problem.isEmpty() ? "All in one page: " + page : problem, !problem.isEmpty());
    sayVerdict(passed && !interrupted());
    if (interrupted())
        return 1;
    return !worked || !problem.isEmpty() ? 2 : !passed;
}
