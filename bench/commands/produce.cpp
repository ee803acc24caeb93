#include "commands/commands.h"
#include "commands/interrupt.h"
#include "fixture/fixture.h"
#include "panel/json.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/report.h"
#include "station/virtualstand.h"

#include <QCommandLineParser>
#include <QJsonArray>

namespace {

// One panel from factory-new on, level after level as its own level file says, until it is
// released. Its row of production.json has a title, which begins the names of its levels in the
// report; the plans, one for each level that it gets to; and the values that the station gives it.
class Production {
public:
    Production(const QJsonObject &row, const QString &plans, const PanelOptions &options,
               const QStringList &faults);
    void run(Report *report);

private:
    void runLevel(int level, LevelResult *result);

    QString title_, plans_;
    VirtualPanel panel_;
    Fixture fixture_;
    VirtualStand stand_;
    Values values_;
    QMap<int, Plan> levels_;
};

Production::Production(const QJsonObject &row, const QString &plans, const PanelOptions &options,
                       const QStringList &faults)
    : title_(row["title"].toString())
    , plans_(plans)
    , panel_(options)
    , fixture_(panel_)
    , stand_(panel_)
{
    panel_.factoryNew();
    values_ = identityOf(panel_);
    const QVariantMap given = row["values"].toObject().toVariantMap();
    for (auto value = given.begin(); value != given.end(); ++value) {
        values_[value.key()] = value.value().toString();
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
    Runner(link, stand_, values_, number, {}, true).run(plan, result);
    if (!sound) {
        result->faults += stand_.files.itemFaults(level, *result, 5000);
    }
    result->resumeLog = stand_.files.read("/usr/local/ict/HMI_Factory_Resume.txt");
    panel_.powerOff();
}

void Production::run(Report *report)
{
    const PanelFiles &files = stand_.files;
    int before = -1;
    while (!files.released() && files.level() != before) {
        before = files.level();
        report->levels << LevelResult();
        LevelResult &result = report->levels.last();
        result.level = title_.isEmpty() ? title_ : title_ + ", ";
        runLevel(before, &result);
        if (files.level() == before && !files.released()) {
            result.faults << "the panel stays at this level";
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

void produce(const QCommandLineParser &parser, Report *report)
{
    const QString plans = parser.value("plans");
    QJsonArray rows = readJson(plans + "/production.json")["panels"].toArray();
    const int first = parser.isSet("tour") ? rows.size() - 1 : 0;
    const int end = parser.isSet("single") ? first + 1 : rows.size();
    for (int i = first; i < end; ++i) {
        PanelOptions options;
        options.folder = parser.value("folder");
        if (!options.folder.isEmpty() && i > 0) {
            options.folder += QString("-%1").arg(i + 1);
        }
        Production(rows[i].toObject(), plans, options, parser.values("fault")).run(report);
    }
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
        {"report", "Folder for report.html, report.json, junit.xml and the screens.", "folder",
         "out/produce"},
        {"folder", "Keep the panel's files in this folder; it is emptied first.", "folder"},
    });
    parser.process(args);
    quitOnInterrupt();
    Report report;
    report.title = "Production of virtual panels";
    report.subject = "factory-new panels";
    beginReport(report, parser.value("report"));
    try {
        produce(parser, &report);
    } catch (const BenchError &) {
        if (!report.levels.isEmpty()) {
            writeReport(report, parser.value("report"));
        }
        throw;
    }
    const QString folder = writeReport(report, parser.value("report"));
    for (const QString &fault : report.faults()) {
        say(fault, true);
    }
    say(QString("%1. Report: %2/report.html (and report.json, junit.xml)")
            .arg(report.passed() ? "PASSED" : "FAILED", folder),
        !report.passed());
    return report.passed() ? 0 : 1;
}
