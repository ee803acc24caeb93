#include "commands/commands.h"
#include "commands/interrupt.h"
#include "fixture/fixture.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/report.h"
#include "station/virtualstand.h"

#include <QCommandLineParser>
#include <QRegularExpression>

namespace {

struct Variant {
    QString title; // begins the names of its levels in the report
    QString plans; // folder; a level without a plan there takes the ordinary one
    QString folder; // of the panel's files; empty for a temporary one
    QStringList faults;
    Values values; // what the station gives the panel
};

// One panel from factory-new on, level after level as its own level file says, until it is
// released.
class Production {
public:
    explicit Production(const Variant &variant);
    void run(Report *report);

private:
    static PanelOptions options(const QString &folder)
    {
        PanelOptions options;
        options.folder = folder;
        return options;
    }
    QString planOf(int level) const
    {
        const QString name = QString("/%1.json").arg(QString(levelName(level)).toLower());
        return (QFile::exists(variant_.plans + name) ? variant_.plans : planFolder()) + name;
    }
    LevelResult level();
    QStringList released() const;
    QStringList calibrated(const StepResult &pass) const;

    Variant variant_;
    VirtualPanel panel_;
    Fixture fixture_;
    PanelFiles files_;
    VirtualStand stand_;
    Values values_;
};

Production::Production(const Variant &variant)
    : variant_(variant)
    , panel_(options(variant.folder))
    , fixture_(panel_)
    , files_(panel_.hostPath("/usr/local/ict"),
             {levelItems(Ict), levelItems(T1), levelItems(Bi), levelItems(T2)})
    , stand_(panel_, files_)
{
    panel_.factoryNew();
    values_ = identityOf(panel_);
    panel_.touchPanel() = TouchPanel::ofPanel(variant.values.value("station").toUInt());
    for (const QString &fault : variant.faults) {
        const QString problem = fixture_.setFault(fault);
        if (!problem.isEmpty()) {
            throw BenchError(problem + " (`bench fault list` shows them all)");
        }
    }
    stand_.fixture = [this](const QString &verb, const QString &argument) {
        return fixture_.act(verb, argument);
    };
    for (auto value = variant.values.begin(); value != variant.values.end(); ++value) {
        values_[value.key()] = value.value();
    }
}

LevelResult Production::level()
{
    const int level = files_.level();
    LevelResult result;
    result.level = levelName(level);
    const Plan plan = loadPlan(planOf(level), values_);
    if (!plan.problems.isEmpty()) {
        throw BenchError(plan.problems.join('\n'));
    }
    const QString fault = stand_.powerOn();
    Link link;
    QString error;
    if (!fault.isEmpty() || !link.open(stand_.port(level), modeAt(level), &error)) {
        result.faults << fault + error;
        return result;
    }
    const int number = level == Bi ? files_.station() : values_.value("station").toInt();
    Runner runner(link, stand_, values_, number, {}, true);
    runner.onExchange = [this](const StepResult &step) { files_.exchanged(step); };
    result = runner.run(plan);
    result.faults = files_.faults(5000);
    for (const StepResult &step : result.steps) {
        if (step.faults.isEmpty() && !step.step.during.isEmpty()) {
            result.faults += calibrated(step);
        }
    }
    result.resumeLog = files_.resumeLog();
    panel_.powerOff();
    return result;
}

// What a touch pass that succeeded must have left on the panel: seven numbers and a zero byte, the
// same in the backup and, as text, in the boot loader's environment; and the touched positions.
QStringList Production::calibrated(const StepResult &pass) const
{
    const bool checkOnly = pass.step.code == "9001";
    const QByteArray file = panel_.readFile("/etc/pointercal");
    const QRegularExpression seven(QRegularExpression::anchoredPattern("-?\\d+( -?\\d+){6}\\x{0}"));
    const QRegularExpression spots(QRegularExpression::anchoredPattern(
        QString("(\\(-?\\d+,-?\\d+\\)\n){%1}").arg(checkOnly ? 5 : 10)));
    const QByteArray name = checkOnly ? "T2_TP_Value.txt" : "T1_TP_Value.txt";
    QStringList faults;
    if (!seven.match(textOf(file)).hasMatch()) {
        faults << "/etc/pointercal is not seven numbers and a zero byte: " + printable(file);
    }
    if (panel_.readFile("/usr/local/ict/pointercal") != file) {
        faults << "the backup of /etc/pointercal differs from it";
    }
    if (!panel_.bootEnvironment().trimmed().endsWith("pointercal "
                                                     + QByteArray(file.constData()))) {
        faults << "the boot loader's last calibration is not the file's";
    }
    if (!spots.match(textOf(panel_.readFile("/usr/local/ict/" + name))).hasMatch()) {
        faults << name + " does not hold its touched positions, a line each";
    }
    return faults;
}

// What a panel that leaves the line must be like, beside its files.
QStringList Production::released() const
{
    const QByteArray sram = panel_.readFile("/dev/OstraHMI_GPMC_RW");
    QStringList faults;
    if (sram != QByteArray(32768, '\0')) {
        faults << QString("the SRAM is not clear: %1 bytes, %2 of them zero")
                      .arg(sram.size())
                      .arg(sram.count('\0'));
    }
    if (panel_.readFile("/mnt/ict_log/ict_log.tgz").isEmpty()) {
        faults << "the logs were not saved outside their folder";
    }
    return faults;
}

void Production::run(Report *report)
{
    int before = -1;
    while (!files_.released() && files_.level() != before) {
        before = files_.level();
        LevelResult result = level();
        if (files_.level() == before && !files_.released()) {
            result.faults << "the panel stays at this level";
        }
        if (files_.released() && variant_.plans != planFolder() + "/tour") {
            result.faults += released();
        }
        for (const QString &fault : result.faults) {
            say("FAIL " + fault, true);
        }
        if (result.medianOverheadMs() > 0) {
            say(QString("     %1 ms an item over the prescribed waits in the median (limit 120)")
                    .arg(result.medianOverheadMs(), 0, 'f', 1));
        }
        result.level = variant_.title + result.level;
        report->levels << result;
    }
}

QVector<Variant> variantsOf(const QCommandLineParser &parser)
{
    const QStringList faults = parser.values("fault");
    const Values first = {
        {"semiId", "SEMI25110001"}, {"machineId", "20254711T12345678"}, {"station", "5"}};
    // From the factory that numbers its panels in the ID, 18 characters long.
    const Values second = {
        {"semiId", "SEMI25110002"}, {"machineId", "202547110W12345607"}, {"station", "7"}};
    const QString folder = parser.value("folder");
    const Variant tour{"third panel, ", planFolder() + "/tour",
                       folder.isEmpty() ? folder : folder + "-3", faults, first};
    if (parser.isSet("tour")) {
        return {tour};
    }
    QVector<Variant> variants = {{"", parser.value("plans"), folder, faults, first}};
    if (!parser.isSet("single")) {
        variants << Variant{"second panel, ", parser.value("plans") + "/extended",
                            folder.isEmpty() ? folder : folder + "-2", faults, second}
                 << tour;
    }
    return variants;
}

} // namespace

int runProduce(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Makes a factory-new virtual panel and takes it through ICT, T1, BI and T2, one power "
        "cycle after the other,\nuntil it is released; a second one by the short way from T1; a "
        "third by "
        "forced changes.\n"
        "Exit status 0 only if every reply, every screen and every file on the panels is what it "
        "must be.");
    parser.addHelpOption();
    parser.addOptions({
        {"plans", "Folder of the plans (ict.json, ...; extended/ for the second panel).", "folder",
         planFolder()},
        {"tour",
         "Only the third: identity, presence, failing end check and forced change of each level."},
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
    for (const Variant &variant : variantsOf(parser)) {
        Production(variant).run(&report);
    }
    const QString problem = writeReport(report, parser.value("report"));
    if (!problem.isEmpty()) {
        throw BenchError(problem);
    }
    for (const QString &fault : report.faults()) {
        say(fault, true);
    }
    say(QString("%1. Report: %2/report.html (and report.json, junit.xml)")
            .arg(report.passed() ? "PASSED" : "FAILED", parser.value("report")),
        !report.passed());
    return report.passed() ? 0 : 1;
}
