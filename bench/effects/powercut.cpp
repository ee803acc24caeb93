#include "effects/powercut.h"

#include "commands/interrupt.h"
#include "panel/filewrite.h"
#include "station/codec.h"

#include <QDir>
#include <QRegularExpression>

namespace {

constexpr char ict[] = "/usr/local/ict/", levelFile[] = "/usr/local/ict/HMI_TEST_LEVEL.txt",
               machineId[] = "/usr/local/ict/HMI_MACHINE_ID.txt", pointercal[] = "/etc/pointercal",
               backup[] = "/usr/local/ict/pointercal";
constexpr int recordSize = 64;
constexpr qint64 askAgainMs = 500, bootMs = 60000;

QByteArray flagFile(const QByteArray &level)
{
    return ict + ("HMI_" + level) + "_TEST_Flag.txt";
}

// As the agent writes it, and every reader takes it up to its zero byte.
bool isCalibration(const QByteArray &text)
{
    static const QRegularExpression numbers("^(-?\\d+ ){6}-?\\d+$");
    const int end = text.indexOf('\0');
    return end > 0 && numbers.match(QString::fromLatin1(text.left(end))).hasMatch();
}

// Items that a boot passes by itself: what the factory of the machine ID is spared.
QSet<int> granted(const PanelState &state, const QByteArray &level)
{
    const QByteArray id = state.value(machineId);
    const bool factoryW = id.size() > 9 && id[id.size() == 18 ? 9 : 8] == 'W';
    return level == "T1" && factoryW ? QSet<int>{13, 15}
        : level == "BI" && !factoryW ? QSet<int>{4}
                                     : QSet<int>();
}

QString itemsText(const QSet<int> &items)
{
    QStringList numbers;
    for (int item : items) {
        numbers << QString::number(item + 1);
    }
    numbers.sort();
    return numbers.join(", ");
}

} // namespace

bool isState(const QByteArray &path)
{
    if (path == pointercal || path == "/etc/localtime") {
        return true;
    }
    return path.startsWith(ict) && path.count('/') == 4 && !path.endsWith(".sh")
        && !path.contains("Log") && !path.contains("Resume");
}

PanelState stateOf(const VirtualPanel &panel)
{
    PanelState state;
    const auto take = [&](const QString &path) {
        const QFileInfo file(panel.hostPath(path));
        if (isState(path.toLatin1()) && file.isFile() && !file.isSymLink()) {
            state[path.toLatin1()] = panel.readFile(path);
        }
    };
    for (const QString &name : QDir(panel.hostPath(ict)).entryList(QDir::Files)) {
        take(ict + name);
    }
    take(pointercal);
    take("/etc/localtime");
    return state;
}

void putState(VirtualPanel &panel, const PanelState &state)
{
    panel.factoryNew();
    const PanelState fresh = stateOf(panel);
    for (auto file = fresh.begin(); file != fresh.end(); ++file) {
        QFile::remove(panel.hostPath(file.key()));
    }
    for (auto file = state.begin(); file != state.end(); ++file) {
        panel.writeFile(file.key(), file.value());
    }
}

QByteArray bootLevel(const PanelState &state)
{
    const QByteArray text = state.value(levelFile).left(2);
    return text == "T1" || text == "BI" || text == "T2" ? text : QByteArray("ICT");
}

QSet<int> passedItems(const PanelState &state, const QByteArray &level)
{
    QSet<int> passed;
    const QByteArray flags = state.value(flagFile(level));
    for (int i = 0; (i + 1) * recordSize <= flags.size(); ++i) {
        const QByteArray text = flags.mid(i * recordSize).constData(); // up to its zero byte
        if (text.trimmed().endsWith('1')) {
            passed << i;
        }
    }
    return passed;
}

QString verdict(const Cut &cut, const Revival &revival)
{
    if (!revival.answers) {
        return "the panel does not answer";
    }
    const QByteArray before = cut.before.value(levelFile, "ICT\n"),
                     text = revival.files.value(levelFile), level = bootLevel(revival.files);
    // Of a level file that never was anything may be there that reads as ICT, where a panel begins.
    const bool begins =
        !cut.before.contains(levelFile) && level == "ICT" && !text.startsWith("HMI");
    if (text != cut.target && (text != before || cut.confirmed) && !begins) {
        return QString("the level reads \"%1\"").arg(printable(text));
    }
    if (revival.level != level) {
        return "it booted at " + revival.level;
    }
    const QSet<int> spared = granted(revival.files, level),
                    passed = passedItems(revival.files, level) - spared;
    const QSet<int> nowPassed = passedItems(cut.now, level), was = passedItems(cut.before, level);
    const bool kept = level == bootLevel(cut.before) && !cut.atRest
        && (!cut.confirmed || cut.now.contains(flagFile(level)));
    const QSet<int> may = kept ? was + cut.items : nowPassed,
                    must = (kept && cut.now.contains(flagFile(level)) ? was - cut.items
                                : kept                                ? QSet<int>()
                                                                      : nowPassed)
        - spared;
    if (!(passed - may).isEmpty() || !(must - passed).isEmpty()) {
        return QString("items passed that had not: %1; lost: %2")
            .arg(itemsText(passed - may), itemsText(must - passed));
    }
    for (const char *file : {"MACHINE_ID", "SEMIMACHINE_ID", "STATION_NUM"}) {
        const QByteArray path = ict + QByteArray("HMI_") + file + ".txt";
        if (cut.confirmed && cut.now.contains(path) && revival.files[path] != cut.now[path]) {
            return QString("%1 reads \"%2\"").arg(file, printable(revival.files[path]));
        }
    }
    // An empty backup counts as none.
    const QByteArray saved = revival.files.value(backup);
    if (!isCalibration(revival.files.value(pointercal))
        || !(saved.isEmpty() || isCalibration(saved))) {
        return QString("the calibration reads \"%1\", its backup \"%2\"")
            .arg(printable(revival.files.value(pointercal)), printable(saved));
    }
    return {};
}

namespace {

// One panel that is being revived.
class Patient {
public:
    explicit Patient(VirtualPanel *panel)
        : panel_(panel)
    {
        for (Port id : {Port::ttyO1, Port::ttyO3}) {
            QObject::connect(panel->port(id), &PtyPort::fromPanel, this_.get(),
                             [this](const QByteArray &) { answered_ = true; });
        }
    }
    void begin(const Taker &taker)
    {
        taker_ = taker;
        revival_ = {};
        answered_ = false;
        asked_ = 0;
        QFile::remove(panel_->hostPath("/usr/local/ict/FactoryTestLog.txt"));
        clock_.start();
        panel_->powerOn();
    }
    bool isBusy() const
    {
        return bool(taker_);
    }
    // Looks at the files before it asks, for some questions are tests with results.
    void look()
    {
        const bool burnIn = bootLevel(stateOf(*panel_)) == "BI";
        PtyPort *link = panel_->port(burnIn ? Port::ttyO3 : Port::ttyO1);
        if (revival_.files.isEmpty() && link->isOpenOnPanel()) {
            revival_.files = stateOf(*panel_);
            const QByteArray log = panel_->readFile("/usr/local/ict/FactoryTestLog.txt");
            const int at = log.lastIndexOf("Boot up at ") + 11;
            revival_.level = at < 11 ? QByteArray() : log.mid(at, log.indexOf('\n', at) - at);
        }
        if (!revival_.files.isEmpty() && clock_.elapsed() - asked_ >= askAgainMs) {
            asked_ = clock_.elapsed();
            link->send(shortRequest(0, burnIn ? "8801" : "8000"));
        }
        if (answered_ || clock_.elapsed() > bootMs || !panel_->isOn()) {
            revival_.answers = answered_;
            panel_->powerOff();
            std::exchange(taker_, nullptr)(revival_);
        }
    }
    VirtualPanel &panel()
    {
        return *panel_;
    }

private:
    VirtualPanel *panel_;
    std::unique_ptr<QObject> this_ = std::make_unique<QObject>(); // ends the connections
    Taker taker_;
    Revival revival_;
    bool answered_ = false;
    qint64 asked_ = 0;
    QElapsedTimer clock_;
};

} // namespace

void revive(QVector<VirtualPanel *> panels, const std::function<Taker(VirtualPanel &)> &begin)
{
    std::vector<std::unique_ptr<Patient>> patients;
    for (VirtualPanel *panel : panels) {
        patients.push_back(std::make_unique<Patient>(panel));
    }
    bool more = true, busy = true;
    while (more || busy) {
        busy = false;
        for (const auto &patient : patients) {
            if (!patient->isBusy() && more) {
                const Taker taker = begin(patient->panel());
                more = bool(taker);
                if (more) {
                    patient->begin(taker);
                }
            }
            if (patient->isBusy()) {
                patient->look();
            }
            busy |= patient->isBusy();
        }
        waitFor(interrupted, 10);
        if (interrupted()) {
            throw BenchError("interrupted");
        }
    }
}
