#include "commands/commands.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/report.h"
#include "station/virtualstand.h"

#include <QCommandLineParser>

using namespace station;

namespace {

// One panel from factory-new on, level after level as its own level file says, until it is
// released.
class Production {
public:
    Production(const QString &folder, const QString &plans)
        : m_panel(options(folder))
        , m_files(m_panel.hostPath("/usr/local/ict"),
                  {levelItems(Ict), levelItems(T1), levelItems(Bi), levelItems(T2)})
        , m_stand(m_panel, m_files)
        , m_plans(plans)
    {
        m_values = identityOf(m_panel);
    }
    void run(Report *report);

private:
    static PanelOptions options(const QString &folder)
    {
        PanelOptions options;
        options.folder = folder;
        return options;
    }
    // The variant's own plan, or the ordinary one of the level.
    QString planOf(int level) const
    {
        const QString name = QString("/%1.json").arg(QString(levelName(level)).toLower());
        return QFile::exists(m_plans + name) ? m_plans + name : planFolder() + name;
    }
    LevelResult level();

    VirtualPanel m_panel;
    PanelFiles m_files;
    VirtualStand m_stand;
    QString m_plans;
    Values m_values;
};

LevelResult Production::level()
{
    const int level = m_files.level();
    LevelResult result;
    result.level = levelName(level);
    const Plan plan =
        loadPlan(QString("%1/%2.json").arg(m_plans, QString(levelName(level)).toLower()), m_values);
    if (!plan.problems.isEmpty())
        throw BenchError(plan.problems.join('\n'));
    const QString fault = m_stand.powerOn();
    Link link;
    QString error;
    if (!fault.isEmpty()
        || !link.open(m_stand.port(level), level == Bi ? Link::Mode::Rs485 : Link::Mode::Rs232,
                      &error)) {
        result.faults << fault + error;
        return result;
    }
    const int number = level == Bi ? m_files.station() : m_values.value("station").toInt();
    Runner runner(link, m_stand, m_values, number, {}, true);
    runner.onExchange = [this](const StepResult &step) { m_files.exchanged(step); };
    result = runner.run(plan);
    result.faults = m_files.faults(5000);
    result.resumeLog = m_files.resumeLog();
    for (const QString &file : result.faults)
        say("FAIL " + file, true);
    m_panel.powerOff();
    return result;
}

void Production::run(Report *report)
{
    m_panel.powerOff();
    m_panel.factoryNew();
    QStringList seen;
    while (!m_files.released()) {
        const LevelResult result = level();
        report->levels << result;
        if (seen.contains(result.level)) {
            report->levels.last().faults
                << "the panel came up at this level again instead of the next";
            return;
        }
        seen << result.level;
    }
}

} // namespace

int runProduce(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Makes a factory-new virtual panel and takes it through its test levels, one power "
        "cycle after the other, until it is released.\nExit status 0 only if every reply, "
        "every screen and every file on the panel is what it must be.");
    parser.addHelpOption();
    parser.addOptions(
        {{"plans", "Folder of the plans (ict.json, t1.json, bi.json, t2.json).", "folder",
          planFolder()},
         {"tour", "Only identity, presence, failing end check and forced change of each level."},
         {"report", "Folder for report.html, report.json, junit.xml and the screens.", "folder",
          "out/produce"},
         {"folder", "Keep the panel's files in this folder.", "folder"}});
    parser.process(QStringList("bench produce") + args.mid(1));
    Report report;
    report.title = "Production of a virtual panel";
    report.subject = "factory-new panel";
    Production production(parser.value("folder"),
                          parser.isSet("tour") ? planFolder() + "/tour" : parser.value("plans"));
    production.run(&report);
    const QString problem = writeReport(report, parser.value("report"));
    if (!problem.isEmpty())
        throw BenchError(problem);
    for (const QString &fault : report.faults())
        say(fault, true);
    say(QString("%1. Report: %2/report.html")
            .arg(report.passed() ? "PASSED" : "FAILED", parser.value("report")),
        !report.passed());
    return report.passed() ? 0 : 1;
}
