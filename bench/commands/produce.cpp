#include "commands/commands.h"
#include "commands/interrupt.h"
#include "fixture/fixture.h"
#include "panel/board.h"
#include "panel/json.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/report.h"
#include "station/virtualstand.h"
#include "store/handin.h"

#include <QCommandLineParser>
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
    QStringList afterRelease();
    void runLevel(int level, LevelResult *result);

    QString plans_;
    VirtualPanel panel_;
    Fixture fixture_;
    VirtualStand stand_;
    Values values_;
    QMap<int, Plan> levels_;
};

Values valuesOf(const QJsonObject &row)
{
    Values values;
    const QJsonObject given = row["values"].toObject();
    for (const QString &name : given.keys()) {
        values[name] = given[name].toString();
    }
    return values;
}

Production::Production(const QJsonObject &row, const QString &plans, const PanelOptions &options,
                       const QStringList &faults)
    : plans_(plans)
    , panel_(options)
    , fixture_(panel_)
    , stand_(panel_)
{
    panel_.factoryNew();
    values_ = identityOf(panel_);
    const Values given = valuesOf(row);
    for (auto value = given.begin(); value != given.end(); ++value) {
        values_[value.key()] = value.value();
    }
    stand_.files.values = values_;
    panel_.touchPanel() = TouchPanel::ofPanel(values_.value("station").toUInt());
    for (const QString &fault : faults) {
        const QString problem = fixture_.setFault(fault);
        if (!problem.isEmpty()) {
            throw BenchError(problem);
        }
    }
    stand_.fixture = [this](const QString &verb, const QString &argument) {
        return fixture_.act(verb, argument);
    };
    for (const QJsonValue &path : row["plans"].toArray()) {
        Plan plan = loadPlan(plans + '/' + path.toString(), values_);
        if (!plan.problems.isEmpty()) {
            throw BenchError(plan.problems.join('\n'));
        }
        plan.file = path.toString();
        levels_[plan.level] = plan;
    }
}

void Production::runLevel(int level, LevelResult *result)
{
    if (!levels_.contains(level)) {
        result->faults << QString("nobody has a plan for level %1").arg(levelName(level));
        return;
    }
    const Plan &plan = levels_[level];
    const QString fault = stand_.powerOn();
    Link link;
    QString error;
    if (!fault.isEmpty() || !link.open(stand_.port(level), modeAt(level), &error)) {
        result->faults << fault + error;
        return;
    }
    const bool sound = fixture_.faults().isEmpty();
    stand_.stateFolder = sound ? QFileInfo(plans_ + '/' + plan.file).path() : QString();
    const int number = level == Bi
        ? stand_.files.read("/usr/local/ict/HMI_STATION_NUM.txt").toInt(nullptr, 16)
        : values_.value("station").toInt();
    Runner(link, stand_, values_, {number, {}, true, verbose}).run(plan, result);
    if (!sound) {
        result->faults += stand_.files.itemFaults(level, *result, 5000);
    }
    result->resumeLog = stand_.files.read("/usr/local/ict/HMI_Factory_Resume.txt");
    panel_.powerOff();
}

// A whole machine then starts the product application and not the agent.
QStringList Production::afterRelease()
{
    if (!panel_.board()) {
        return {};
    }
    panel_.powerOn();
    const bool started =
        waitFor([&] { return !panel_.board()->run("pidof window").isEmpty(); }, 60000);
    const bool agent = !panel_.board()->run("pidof ict-agent").isEmpty();
    panel_.powerOff();
    QStringList faults;
    if (!started || agent) {
        faults << "the released panel does not start the product application alone";
    }
    return faults;
}

void Production::run(Report *report)
{
    const PanelFiles &files = stand_.files;
    int before = -1;
    while (!files.released() && files.level() != before) {
        before = files.level();
        report->levels << LevelResult();
        LevelResult &result = report->levels.last();
        result.level = levelName(before);
        runLevel(before, &result);
        if (files.level() == before && !files.released()) {
            result.faults << "the panel stays at this level";
        }
        if (files.released()) {
            result.faults += afterRelease();
        }
        for (const QString &fault : result.faults) {
            say("FAIL " + fault, true);
        }
        if (result.medianOverheadMs() > 0) {
            say(QString("     %1 ms an item over the prescribed waits in the median (limit 120)")
                    .arg(result.medianOverheadMs(), 0, 'f', 1));
        }
    }
}

// One panel. Its report is written whatever happens; false if the bench could not work, which is
// said.
bool produce(const QCommandLineParser &parser, const QJsonObject &row, int number, Report *report)
{
    const QString base = parser.value("report");
    report->subject = row["title"].toString();
    report->given = valuesOf(row);
    report->operatorName = parser.value("operator");
    report->line = parser.value("line");
    const QString folder = beginReport(*report, base);
    PanelOptions options;
    options.folder = parser.value("folder");
    if (!options.folder.isEmpty() && number > 0) {
        options.folder += QString("-%1").arg(number + 1);
    }
    bool worked = true;
    try {
        say(report->subject);
        Production production(row, parser.value("plans"), options, parser.values("fault"));
        production.verbose = parser.isSet("verbose");
        production.run(report);
    } catch (const BenchError &error) {
        worked = false;
        if (report->levels.isEmpty() || report->faults().isEmpty()) {
            report->levels << LevelResult();
            report->levels.last().level = "the bench";
            report->levels.last().faults << error.what();
        }
        fprintf(stderr, "bench produce: %s\n", error.what());
    }
    report->ended = QDateTime::currentDateTime();
    for (const QString &fault : report->faults()) {
        say(fault, true);
    }
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
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Makes a factory-new virtual panel and takes it through ICT, T1, BI and T2, one power "
        "cycle after the other,\nuntil it is released; a second one by the short way from T1; a "
        "third by forced changes.\n"
        "Exit status 0 only if every reply, every screen and every file on the panels is what it "
        "must be.");
    parser.addHelpOption();
    parser.addOptions({
        {"plans", "Folder of the plans; production.json in it says which panel takes which.",
         "folder", planFolder()},
        {"tour",
         "Only the last: identity, presence, failing end check and forced change of each level."},
        {"single", "Only the first panel."},
        {"fault", "Begin with this fault; may be given several times.", "name[:value]"},
        {"report", "Folder for the reports, UNIT/TIMESTAMP inside it, and for one page with all.",
         "folder", "out/produce"},
        {"operator", "Who tests, for the reports.", "name"},
        {"line", "Production line, for the reports and the store; else the host.", "name"},
        {"verbose", "Show the requests and answers."},
        storeOption(),
        {"folder", "Keep the panel's files in this folder; it is emptied first.", "folder"},
    });
    parser.process(args);
    quitOnInterrupt();
    const QJsonArray rows =
        readJson(parser.value("plans") + "/production.json")["panels"].toArray();
    const int first = parser.isSet("tour") ? rows.size() - 1 : 0;
    const int end = parser.isSet("single") ? first + 1 : rows.size();
    QVector<Report> reports;
    bool worked = true, passed = true;
    for (int i = first; i < end && worked; ++i) {
        reports << Report();
        worked = produce(parser, rows[i].toObject(), i, &reports.last());
        passed = passed && reports.last().passed();
    }
    const QString page = parser.value("report") + "/report.html";
    const QString problem = writePage(reports, page);
    say(problem.isEmpty() ? "All in one page: " + page : problem, !problem.isEmpty());
    sayVerdict(passed && !interrupted());
    return interrupted() ? 1 : !worked || !problem.isEmpty() ? 2 : !passed;
}
