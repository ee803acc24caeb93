// What programs drive a panel with.
#include "commands/commands.h"
#include "fixture/finger.h"
#include "fixture/fixture.h"
#include "fixture/virtualstand.h"
#include "panel/board.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"
#include "station/codec.h"

#include <QFile>
#include <QRegularExpression>
#include <QSocketNotifier>

#include <unistd.h>

namespace {

constexpr int bootMs = 60000, askAgainMs = 500;
constexpr char preload[] = "/run/bench/preload.so";
constexpr char driveHelp[] =
    "Usage: bench drive [--folder FOLDER] [PROGRAM ARGUMENT...]\n"
    "Acts on a virtual panel as lines on standard input say, and answers each by a line. The\n"
    "first line is the folder of the panel's files, a temporary one or below FOLDER. With\n"
    "PROGRAM, that starts the agent.\n"
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
    void powerOn(const QStringList &agentArgs);
    QString run(const QString &command);
    void saveScreens(const QString &folder);
    void ask(const QString &request);
    bool answers(const QString &code);
    QByteArray answer(int ms);

    VirtualPanel panel_;
    Fixture fixture_;
    VirtualStand stand_;
    const bool isTraced_;
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
    const QStringList words = rest.split(' ', Qt::SkipEmptyParts);
    const QString first = words.value(0);
    const QPoint spot(first.toInt(), words.value(1).toInt());
    const Port port = first == "/dev/ttyO3" ? Port::ttyO3
        : first == "/dev/ttyO4"             ? Port::ttyO4
                                            : Port::ttyO1;
    Finger finger(panel_);
    QString wrong, answer;
    const auto plug = [&] { wrong = fixture_.act(verb, rest); };
    const auto present = [&] { panel_.setPresent(rest, verb == "present"); };
    const auto isOpen = [&] {
        return panel_.port(panel_.link())->isOpenOnPanel() || !panel_.isOn();
    };
    const QMap<QString, std::function<void()>> actions{
        {"help", [&] { answer = QStringList(actions.keys()).join(' '); }},
        {"on", [&] { powerOn(words); }},
        {"boot", [&] { answer = outcome(stand_.powerOn()); }},
        {"act", [&] { answer = outcome(stand_.act(rest)); }},
        {"screens", [&] { saveScreens(rest); }},
        {"link", [&] { answer = panel_.linkPath(linkPort(first)); }},
        {"glass", [&] { panel_.touchPanel() = TouchPanel::ofPanel(first.toUInt()); }},
        {"run", [&] { answer = run(rest); }},
        {"off", [&] { panel_.powerOff(); }},
        {"runs", [&] { answer = panel_.isOn() ? "yes" : "no"; }},
        {"new", [&] { panel_.factoryNew(); }},
        {"pid", [&] { answer = QString::number(panel_.agentPid()); }},
        {"ask", [&] { ask(rest); }},
        {"answer", [&] { answer = '"' + printable(this->answer(first.toInt())) + '"'; }},
        {"opens", [&] { answer = waitFor(isOpen, bootMs) && panel_.isOn() ? "yes" : "no"; }},
        {"answers", [&] { answer = answers(first) ? "yes" : "no"; }},
        {"arrives", [&] { panel_.port(port)->send(unprintable(rest.section(' ', 1).toLatin1())); }},
        {"fault", [&] { fixture_.setFault(rest); }},
        {"faults", [&] { answer = fixture_.faults().join(' '); }},
        {"mend", [&] { fixture_.clearFault(rest); }},
        {"plug", plug},
        {"unplug", plug},
        {"absent", present},
        {"present", present},
        {"set", [&] { panel_.setAttribute(first, words.value(1).toLatin1()); }},
        {"press", [&] { panel_.touchPress(spot); }},
        {"release", [&] { panel_.touchRelease(); }},
        {"tap", [&] { panel_.tap(spot); }},
        {"touch", [&] { wrong = finger.tap(spot); }},
        {"point", [&] { wrong = finger.tap(spot, false); }},
        {"calibrate", [&] { wrong = finger.calibrate(); }},
        {"calibrate3", [&] { wrong = finger.calibrate(false); }},
        {"check", [&] { wrong = finger.check(); }},
    };
    if (!actions.contains(verb))
        throw BenchError("nobody knows how to \"" + verb + '"');
    actions[verb]();
    if (!wrong.isEmpty())
        throw BenchError(wrong);
    return answer;
}

void DrivenPanel::powerOn(const QStringList &agentArgs)
{
    const QString library = programFolder() + "/bench-preload.so", copy = panel_.hostPath(preload);
    if (isTraced_ && !QFile::exists(copy) && !QFile::copy(library, copy))
        throw BenchError("Cannot take " + library + ": build or install the whole bench");
    panel_.powerOn(agentArgs);
}

QString DrivenPanel::run(const QString &command)
{
    if (!panel_.board())
        throw BenchError("only the whole ARM machine runs a command");
    return '"' + printable(panel_.board()->run(command)) + '"';
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
        text[0] == '"' ? unprintable(text.mid(1, text.size() - 2)) : shortRequest(0, text);
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

} // namespace

int runDrive(const QStringList &args)
{
    const bool help = args.value(1) == "--help" || args.value(1) == "-h";
    const bool hasFolder = args.value(1) == "--folder";
    PanelOptions options;
    options.folder = hasFolder ? args.value(2) : QString();
    options.wrapper = help ? QStringList() : args.mid(hasFolder ? 3 : 1);
    quitOnInterrupt();
    try {
        DrivenPanel panel(options);
        if (help)
            printf(driveHelp, qPrintable(panel.obey("help", {})));
        return help ? 0 : follow(panel);
    } catch (const BenchError &error) { // no panel
        tell(QString("error: ") + error.what());
        return 2;
    }
}
