#include "effects/session.h"
#include "fixture/finger.h"
#include "fixture/fixture.h"
#include "panel/filewrite.h"
#include "panel/folders.h"
#include "panel/virtualpanel.h"
#include "station/codec.h"
#include "station/plan.h"
#include "station/protocol.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace {

constexpr char trace[] = "/run/bench/trace", ioctls[] = "/run/bench/ioctls.so";
constexpr int deadlineMs = 120000, idleTurns = 2, deafTurns = 20;

PanelOptions tracedOptions()
{
    if (qEnvironmentVariableIsSet("BENCH_AGENT_ROOT"))
        throw BenchError("only an agent of this machine can be traced, not the ARM one");
    if (QStandardPaths::findExecutable("strace").isEmpty())
        throw BenchError("strace is not installed: apt-get install strace");
    PanelOptions options;
    // Without libeatmydata, which would hide the syncs from the tracer.
    options.wrapper = traceCommand(trace)
        << "-E" << QString("LD_PRELOAD=%1 /usr/$LIB/faketime/libfaketimeMT.so.1").arg(ioctls);
    return options;
}

// Runs of blanks after the first word and at a wrapped line's start are for the eye.
QString plain(const QString &line)
{
    static const QRegularExpression verb("^(\\S+)\\s+");
    return QString(line.trimmed()).replace(verb, "\\1 ");
}

// One text being read, with the definitions of the folder's common.def.
class TextReader {
public:
    QVector<EffectSection> read(const QString &file)
    {
        const QString common = QFileInfo(file).path() + "/common.def";
        if (QFile::exists(common))
            readFile(common);
        readFile(file);
        return sections_;
    }

private:
    void readFile(const QString &name)
    {
        QFile file(name);
        if (!file.open(QIODevice::ReadOnly))
            throw BenchError(QString("Cannot read %1: %2").arg(name, file.errorString()));
        int number = 0;
        for (const QString &line : QString::fromUtf8(file.readAll()).split('\n')) {
            place_ = QString("%1:%2: ").arg(name).arg(++number);
            if (line.trimmed().isEmpty())
                defining_.clear();
            else if (line.startsWith("@ ") && definitions_.contains(line.mid(2).trimmed()))
                throw BenchError(place_ + "there is another " + line);
            else if (line.startsWith("@ "))
                defining_ = line.mid(2).trimmed();
            else if (!defining_.isEmpty())
                definitions_[defining_] << line;
            else if (line.startsWith("= "))
                sections_.append({line.mid(2).trimmed(), {}, {}, number});
            else if (!line.startsWith('#'))
                add(line);
        }
    }
    void add(const QString &line)
    {
        if (line.startsWith('@'))
            return use(line.mid(1).split(' ', Qt::SkipEmptyParts));
        if (sections_.isEmpty())
            throw BenchError(place_ + "a line before the first \"= REQUEST\"");
        QStringList &effects = sections_.last().effects;
        if (line.startsWith("- "))
            sections_.last().conditions << plain(line.mid(2));
        else if (line[0].isSpace() && !effects.isEmpty())
            effects.last() += ' ' + line.trimmed();
        else
            effects << plain(line);
    }
    // "@NAME A B": $1 is A, $2 is B. "@NAME 1..20": once for each number, $01 being it in two
    // digits.
    void use(QStringList words)
    {
        const QString name = words.takeFirst();
        if (!definitions_.contains(name))
            throw BenchError(place_ + "nobody has defined @" + name);
        const QStringList range = words.value(0).split("..");
        const bool counts = range.size() == 2;
        for (int n = counts ? range[0].toInt() : 0; n <= (counts ? range[1].toInt() : 0); ++n) {
            for (QString line : definitions_[name]) {
                line.replace("$01", QString("%1").arg(n, 2, 10, QLatin1Char('0')));
                for (int i = 0; i < words.size(); ++i)
                    line.replace('$' + QString::number(i + 1),
                                 counts && i == 0 ? QString::number(n) : words[i]);
                add(line);
            }
        }
    }

    QVector<EffectSection> sections_;
    QHash<QString, QStringList> definitions_;
    QString defining_, place_;
};

} // namespace

QStringList EffectSection::given(const QString &verb) const
{
    QStringList all;
    for (const QString &condition : conditions) {
        if (condition.section(' ', 0, 0) == verb)
            all << condition.section(' ', 1);
    }
    return all;
}

QVector<EffectSection> readEffects(const QString &file)
{
    return TextReader().read(file);
}

QString effectDifference(const QStringList &expected, const QStringList &seen)
{
    if (expected == seen)
        return {};
    QTemporaryDir folder;
    writeInPlace(folder.filePath("expected"), expected.join('\n').toUtf8() + '\n');
    writeInPlace(folder.filePath("seen"), seen.join('\n').toUtf8() + '\n');
    QProcess diff;
    diff.setWorkingDirectory(folder.path());
    diff.start("diff", {"-U99", "--label", "expected", "--label", "seen", "expected", "seen"});
    diff.waitForFinished();
    return QString::fromUtf8(diff.readAll());
}

EffectSession::EffectSession()
    : panel_(std::make_unique<VirtualPanel>(tracedOptions()))
    , fixture_(std::make_unique<Fixture>(*panel_))
{
}

EffectSession::~EffectSession() = default;

void EffectSession::readTrace()
{
    QFile file(panel_->hostPath(trace));
    if (!file.open(QIODevice::ReadOnly) || !file.seek(read_))
        return;
    const QByteArray text = file.readAll();
    read_ += text.size();
    for (const Operation &operation : reader_->read(text)) {
        journal_->add(operation);
        if (watch)
            watch(operation);
    }
}

QStringList EffectSession::run(const EffectSection &section)
{
    for (const QString &condition : section.conditions)
        prepare(condition);
    if (!journal_ && section.title != "boot")
        boot({});
    const bool request = section.title != "boot" && !section.title.startsWith("do ");
    QStringList lines;
    // A request whose bytes a busy machine tore apart is not heard: a station repeats it.
    for (int tries = 0; tries < 3 && lines.isEmpty(); ++tries) {
        perform(section);
        settle(section.given("until").value(0), request);
        lines = journal_->take();
        if (!request || section.effects.isEmpty())
            break;
    }
    for (const QString &action : std::exchange(undo_, {}))
        act(action);
    return lines;
}

void EffectSession::perform(const EffectSection &section)
{
    if (section.title == "boot")
        boot(section);
    else if (journal_->take(), section.title.startsWith("do "))
        act(section.title.mid(3));
    else
        ask(section.title);
    for (const QString &action : section.given("during"))
        act(action);
}

// What "- " lines ask for before the section begins.
void EffectSession::prepare(const QString &condition)
{
    const QString verb = condition.section(' ', 0, 0), rest = condition.section(' ', 1);
    if (QStringList{"until", "during", "agent"}.contains(verb))
        return;
    if (verb == "first") {
        if (!journal_)
            boot({});
        journal_->take();
        ask(rest);
        settle({}, true);
        return;
    }
    act(condition);
    if (verb == "fault")
        undo_ << "mend " + rest;
    if (verb == "absent")
        undo_ << "present " + rest;
}

void EffectSession::act(const QString &action)
{
    const QString verb = action.section(' ', 0, 0), rest = action.section(' ', 1);
    const QString path = rest.section(' ', 0, 0), value = rest.section(' ', 1);
    const QByteArray bytes = unprintable(value.toLatin1());
    const QPoint spot(path.toInt(), value.toInt());
    Finger finger(*panel_);
    QString wrong;
    const auto plug = [&] { wrong = fixture_->act(verb, rest); };
    const auto appear = [&] { panel_->setPresent(rest, verb == "present"); };
    const auto renew = [&] {
        panel_->powerOff();
        panel_->factoryNew();
    };
    const auto arrive = [&] {
        panel_->port(path == "/dev/ttyO3" ? Port::ttyO3 : Port::ttyO4)->send(bytes);
    };
    const QHash<QString, std::function<void()>> actions{
        {"fault", [&] { wrong = fixture_->setFault(rest); }},
        {"mend", [&] { wrong = fixture_->clearFault(rest); }},
        {"plug", plug},
        {"unplug", plug},
        {"absent", appear},
        {"present", appear},
        {"level", [&] { panel_->setLevel(rest); }},
        {"passed", [&] { passAll(rest); }},
        {"file", [&] { panel_->writeFile(path, bytes); }},
        {"arrives", arrive},
        {"remove", [&] { QFile::remove(panel_->hostPath(rest)); }},
        {"set", [&] { panel_->setAttribute(path, value.toLatin1()); }},
        {"new", renew},
        {"press", [&] { panel_->touchPress(spot); }},
        {"release", [&] { panel_->touchRelease(); }},
        {"tap", [&] { panel_->tap(spot); }},
        {"touch", [&] { wrong = finger.tap(spot); }},
        {"point", [&] { wrong = finger.tap(spot, false); }},
        {"calibrate", [&] { wrong = finger.calibrate(); }},
        {"calibrate3", [&] { wrong = finger.calibrate(false); }},
        {"check", [&] { wrong = finger.check(); }},
    };
    if (!actions.contains(verb))
        throw BenchError("nobody knows how to \"" + action + '"');
    actions[verb]();
    if (!wrong.isEmpty())
        throw BenchError(wrong);
}

// The flag file of a level, every item but the end check passed.
void EffectSession::passAll(const QString &level)
{
    QByteArray flags;
    const QStringList items = levelItems(levelByName(level));
    for (int i = 0; i < items.size(); ++i) {
        const QByteArray line = items[i].toLatin1() + (i + 1 < items.size() ? ": 1" : ": 0");
        flags += line + QByteArray(62 - line.size(), '\0') + "\r\n";
    }
    panel_->writeFile("/usr/local/ict/HMI_" + level + "_TEST_Flag.txt", flags);
}

void EffectSession::boot(const EffectSection &section)
{
    panel_->powerOff();
    QFile::remove(panel_->hostPath(trace));
    QFile::remove(panel_->hostPath(ioctls));
    const QString library = programFolder() + "/bench-ioctls.so";
    if (!QFile::copy(library, panel_->hostPath(ioctls)))
        throw BenchError("Cannot take " + library + ": build or install the whole bench");
    read_ = 0;
    reader_ = std::make_unique<TraceReader>();
    journal_ = std::make_unique<Journal>();
    const QStringList args = section.given("agent").join(' ').split(' ', Qt::SkipEmptyParts);
    // In the other run modes no port is a link.
    if (args.isEmpty())
        journal_->setLink(QByteArray("/dev/") + portName(panel_->link()));
    panel_->powerOn(args);
    if (section.title.isEmpty())
        settle({}, false);
}

// A request as `bench send` takes it, CODE and ARGUMENT, or its bytes in quotes.
void EffectSession::ask(const QString &request)
{
    PtyPort *const port = panel_->port(panel_->link());
    if (request.startsWith('"')) {
        port->send(unprintable(request.mid(1, request.lastIndexOf('"') - 1).toLatin1()));
        return;
    }
    port->send(
        requestOf(request.section(' ', 0, 0).toLatin1(), request.section(' ', 1), 0, "KLV-100"));
}

void EffectSession::settle(const QString &until, bool request)
{
    // What was done to the panel has reached it; rest is what comes after it.
    QCoreApplication::processEvents();
    readTrace();
    journal_->countIdleTurnsAnew();
    const bool over = waitFor(
        [&] {
            readTrace();
            if (!until.isEmpty())
                return journal_->tells(until) || !panel_->isOn();
            // What nobody listens for is not heard.
            const int turns = request && !journal_->heard() ? deafTurns : idleTurns;
            return journal_->idleTurns() >= turns || !panel_->isOn();
        },
        deadlineMs);
    if (!over)
        throw BenchError(until.isEmpty() ? QString("the agent does not come to rest")
                                         : QString("no effect \"%1\" came").arg(until));
    readTrace();
}
