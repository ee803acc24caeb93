// What programs drive a panel with.
#include "commands/codec.h"
#include "commands/commands.h"
#include "fixture/finger.h"
#include "fixture/fixture.h"
#include "fixture/virtualstand.h"
#include "panel/board.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSocketNotifier>

#include <unistd.h>

namespace {

constexpr int bootMs = 60000, askAgainMs = 500;
constexpr char preload[] = "/run/bench/preload.so";
constexpr char driveHelp[] =
    "Usage: bench drive [--folder FOLDER] [--ict-disk own] [PROGRAM ARGUMENT...]\n"
    "Acts on a virtual panel as lines on standard input say, and answers each by a line. The\n"
    "first line is the folder of the panel's files, a temporary one or below FOLDER. With\n"
    "PROGRAM, that starts the agent. An ARM machine may have a disk of its own for the agent's\n"
    "files.\n"
    "A line begins with one of\n  %s\n"
    "`ask` takes the four digits of a request, or the bytes of any between quotes.\n"
    "Example: printf 'on\\nopens\\nask 8000\\nanswer 5000\\n' | bench drive\n";

class DrivenPanel {
public:
    explicit DrivenPanel(const PanelOptions &options)
        : panel_(options)
        , fixture_(panel_)
        , stand_(panel_, &fixture_)
        , isTraced_(!options.wrapper.isEmpty())
    {
        for (Port id : {Port::ttyO1, Port::ttyO3}) {
            QObject::connect(panel_.port(id), &PtyPort::fromPanel, &context_,
                             [this, id](const QByteArray &bytes) {
                                 heard_ += id == asked_ ? bytes : QByteArray();
                                 quiet_.start();
                             });
        }
    }
    QString folder() const
    {
        return panel_.hostPath("/");
    }
    // The answer, empty for "ok". Throws BenchError.
    QString obey(const QString &verb, const QString &rest);

private:
    using Actions = QMap<QString, std::function<void()>>;

    Actions atSwitchAndPlugs(const QString &rest);
    Actions onLines(const QString &rest);
    Actions byHand(const QString &rest);
    Actions onMachine(const QString &rest);
    Board &board();
    QString events();
    void powerOn(const QStringList &agentArgs);
    void saveScreens(const QString &folder);
    void ask(const QString &request);
    bool answers(const QString &code);
    QByteArray answer(int ms);

    VirtualPanel panel_;
    Fixture fixture_;
    VirtualStand stand_;
    const bool isTraced_;
    QString wrong_, answer_; // of the action
    Port asked_ = Port::ttyO1;
    QByteArray heard_; // there, since it was asked
    QElapsedTimer quiet_;
    QObject context_; // of the connections, which end first
};

// What an action came to: that a panel is wrong is no failure of the bench. The text is its bytes
// as printable() shows them, for it may have lines.
QString outcome(const QString &wrong)
{
    return wrong.isEmpty() ? QString() : "wrong: " + printable(wrong.toUtf8());
}

QString DrivenPanel::obey(const QString &verb, const QString &rest)
{
    QStringList known;
    wrong_.clear();
    answer_.clear();
    for (const Actions &actions :
         {atSwitchAndPlugs(rest), onLines(rest), byHand(rest), onMachine(rest)}) {
        known += actions.keys();
        if (actions.contains(verb))
            actions[verb]();
    }
    known.sort();
    if (verb == "help")
        return known.join(' ');
    if (!known.contains(verb))
        throw BenchError("nobody knows how to \"" + verb + '"');
    if (!wrong_.isEmpty())
        throw BenchError(wrong_);
    return answer_;
}

DrivenPanel::Actions DrivenPanel::atSwitchAndPlugs(const QString &rest)
{
    const QStringList words = rest.split(' ', Qt::SkipEmptyParts);
    return {
        {"on", [=] { powerOn(words); }},
        {"boot", [=] { answer_ = outcome(stand_.powerOn()); }},
        {"off", [=] { panel_.powerOff(); }},
        {"runs", [=] { answer_ = panel_.isOn() ? "yes" : "no"; }},
        {"new", [=] { panel_.factoryNew(); }},
        {"pid", [=] { answer_ = QString::number(panel_.agentPid()); }},
        {"act", [=] { answer_ = outcome(stand_.act(rest)); }},
        {"screens", [=] { saveScreens(rest); }},
        {"fault", [=] { fixture_.setFault(rest); }},
        {"faults", [=] { answer_ = fixture_.faults().join(' '); }},
        {"mend", [=] { fixture_.clearFault(rest); }},
        {"plug", [=] { wrong_ = fixture_.act("plug", rest); }},
        {"unplug", [=] { wrong_ = fixture_.act("unplug", rest); }},
        {"absent", [=] { panel_.setPresent(rest, false); }},
        {"present", [=] { panel_.setPresent(rest, true); }},
        {"set", [=] { panel_.setAttribute(words.value(0), words.value(1).toLatin1()); }},
    };
}

DrivenPanel::Actions DrivenPanel::onLines(const QString &rest)
{
    const QString first = rest.section(' ', 0, 0), others = rest.section(' ', 1);
    const Port port = first == "/dev/ttyO3" ? Port::ttyO3
        : first == "/dev/ttyO4"             ? Port::ttyO4
                                            : Port::ttyO1;
    const auto isOpen = [=] {
        return panel_.port(panel_.link())->isOpenOnPanel() || !panel_.isOn();
    };
    return {
        {"link", [=] { answer_ = panel_.linkPath(linkPort(first)); }},
        {"opens", [=] { answer_ = waitFor(isOpen, bootMs) && panel_.isOn() ? "yes" : "no"; }},
        {"ready", [=] { answer_ = panel_.isReady(linkPort(first)) ? "yes" : "no"; }},
        {"ask", [=] { ask(rest); }},
        {"answer", [=] { answer_ = '"' + printable(answer(first.toInt())) + '"'; }},
        {"answers", [=] { answer_ = answers(first) ? "yes" : "no"; }},
        {"arrives", [=] { panel_.port(port)->send(unprintable(others.toLatin1())); }},
    };
}

DrivenPanel::Actions DrivenPanel::byHand(const QString &rest)
{
    const QPoint spot(rest.section(' ', 0, 0).toInt(), rest.section(' ', 1, 1).toInt());
    return {
        {"glass", [=] { panel_.touchPanel() = TouchPanel::ofPanel(rest.toUInt()); }},
        {"press", [=] { panel_.touchPress(spot); }},
        {"release", [=] { panel_.touchRelease(); }},
        {"tap", [=] { panel_.tap(spot); }},
        {"touch", [=] { wrong_ = Finger(panel_).tap(spot); }},
        {"point", [=] { wrong_ = Finger(panel_).tap(spot, false); }},
        {"calibrate", [=] { wrong_ = Finger(panel_).calibrate(); }},
        {"calibrate3", [=] { wrong_ = Finger(panel_).calibrate(false); }},
        {"check", [=] { wrong_ = Finger(panel_).check(); }},
    };
}

// What only the ARM machine can do, but for the events, which every panel's buzzer gets.
DrivenPanel::Actions DrivenPanel::onMachine(const QString &rest)
{
    const auto monitor = [=] {
        const QByteArray arguments = rest.section(' ', 1).toUtf8();
        board().monitor(rest.section(' ', 0, 0), QJsonDocument::fromJson(arguments).object());
    };
    return {
        {"run", [=] { answer_ = '"' + printable(board().run(rest)) + '"'; }},
        {"monitor", monitor},
        {"cts", [=] { board().holdCts(rest == "on"); }},
        {"events", [=] { answer_ = '"' + events() + '"'; }},
    };
}

Board &DrivenPanel::board()
{
    if (!panel_.board())
        throw BenchError("only the whole ARM machine can do that");
    return *panel_.board();
}

// TYPE,CODE,VALUE of each that came to the buzzer since they were asked for last.
QString DrivenPanel::events()
{
    QStringList heard;
    for (const InputEvent &event : panel_.events().all())
        heard << QString("%1,%2,%3").arg(event.type).arg(event.code).arg(event.value);
    panel_.events().clear();
    return heard.join(' ');
}

void DrivenPanel::powerOn(const QStringList &agentArgs)
{
    const QString library = programFolder() + "/bench-preload.so", copy = panel_.hostPath(preload);
    if (isTraced_ && !QFile::exists(copy) && !QFile::copy(library, copy))
        throw BenchError("Cannot take " + library + ": build or install the whole bench");
    panel_.powerOn(agentArgs);
}

// Those that actions have kept, as NAME.png; they are kept no longer.
void DrivenPanel::saveScreens(const QString &folder)
{
    for (const QString &name : stand_.screens.keys()) {
        const QString file = QString("%1/%2.png").arg(folder, name);
        if (!stand_.screens[name].save(file))
            throw BenchError(file + " cannot be written");
    }
    stand_.screens.clear();
}

void DrivenPanel::ask(const QString &request)
{
    static const QRegularExpression code("^[0-9A-F]{4}$"), quoted("^\".*\"$");
    if (!code.match(request).hasMatch() && !quoted.match(request).hasMatch())
        throw BenchError("neither the four digits of a request nor bytes between quotes: "
                         + request);
    const QByteArray text = request.toLatin1();
    const QByteArray bytes =
        text[0] == '"' ? unprintable(text.mid(1, text.size() - 2)) : shortRequest(text);
    heard_.clear();
    asked_ = panel_.link();
    panel_.port(asked_)->send(bytes);
}

// What came back since it was asked, once it is whole or the panel dead; else nothing.
QByteArray DrivenPanel::answer(int ms)
{
    const auto whole = [&] {
        return isComplete(heard_, quiet_.isValid() && quiet_.hasExpired(60));
    };
    waitFor([&] { return whole() || !panel_.isOn() || interrupted(); }, ms);
    QCoreApplication::processEvents(); // what it said before it died
    return isComplete(heard_, true) ? heard_ : QByteArray();
}

// Whether a frame or a battery value comes back on the PC link; asks until it does.
bool DrivenPanel::answers(const QString &code)
{
    for (int ms = 0; ms < bootMs && panel_.isOn() && !interrupted(); ms += askAgainMs) {
        ask(code);
        const Reply::Kind kind = decode(answer(askAgainMs)).kind;
        if (kind == Reply::Frame || kind == Reply::Battery)
            return true;
    }
    return false;
}

void tell(const QString &answer)
{
    puts(answer.toUtf8().replace('\n', ' ').constData());
    fflush(stdout);
}

// Line after line of standard input, until its end.
int follow(DrivenPanel &panel)
{
    tell(panel.folder());
    // Not the C library's stdin: at its end the toolkit reads on for ever if a signal came before.
    QFile in;
    in.open(STDIN_FILENO, QIODevice::ReadOnly | QIODevice::Unbuffered);
    QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [&] {
        const QByteArray bytes = in.readLine();
        if (bytes.isEmpty())
            return QCoreApplication::quit();
        const QString line = QString::fromUtf8(bytes.chopped(1));
        QString answer;
        notifier.setEnabled(false); // one line after the other, however many are there
        try {
            answer = panel.obey(line.section(' ', 0, 0), line.section(' ', 1));
        } catch (const BenchError &error) {
            answer = QString("error: ") + error.what();
        }
        QCoreApplication::processEvents(); // what was done has reached the panel
        tell(answer.isEmpty() ? "ok" : answer);
        notifier.setEnabled(true);
    });
    return QCoreApplication::exec();
}

// Options stand before PROGRAM, which has its own.
PanelOptions optionsOf(QStringList words)
{
    PanelOptions options;
    for (; words.value(0).startsWith("--"); words = words.mid(2)) {
        if (words[0] == "--folder" && !words.value(1).isEmpty())
            options.folder = words.value(1);
        else if (words[0] == "--ict-disk" && words.value(1) == "own")
            options.ictDisk = IctDisk::own;
        else
            throw BenchError(words[0] + " is no option, or of no such value. See --help");
    }
    options.wrapper = words;
    return options;
}

} // namespace

int runDrive(const QStringList &args)
{
    const bool help = args.value(1) == "--help" || args.value(1) == "-h";
    quitOnInterrupt();
    try {
        DrivenPanel panel(optionsOf(help ? QStringList() : args.mid(1)));
        if (help)
            printf(driveHelp, qPrintable(panel.obey("help", {})));
        return help ? 0 : follow(panel);
    } catch (const BenchError &error) { // no panel
        tell(QString("error: ") + error.what());
        return 2;
    }
}
