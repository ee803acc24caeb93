// What programs drive a panel with.
#include "commands/commands.h"
#include "fixture/finger.h"
#include "fixture/fixture.h"
#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"
#include "station/codec.h"
#include "station/protocol.h"

#include <QFile>
#include <QSocketNotifier>

#include <unistd.h>

namespace {

constexpr int bootMs = 60000, askAgainMs = 500;
constexpr char preload[] = "/run/bench/preload.so";
constexpr char driveHelp[] =
    "Usage: bench drive [PROGRAM ARGUMENT...]\n"
    "Acts on a virtual panel as lines on standard input say, and answers each by a line. The\n"
    "first line is the folder of the panel's files. With PROGRAM, that starts the agent.\n"
    "A line begins with one of\n  %s\n"
    "Example: printf 'on\\nopens\\nask 8000\\nanswer 5000\\n' | bench drive\n";

class DrivenPanel {
public:
    explicit DrivenPanel(const PanelOptions &options)
        : panel_(options)
        , fixture_(panel_)
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
    void ask(const QString &request);
    bool answers(const QString &code);
    QByteArray answer(int ms);

    VirtualPanel panel_;
    Fixture fixture_;
    const bool isTraced_;
    Port asked_ = Port::ttyO1;
    QByteArray heard_; // there, since it was asked
    QElapsedTimer quiet_;
    QObject context_; // of the connections, which end first
};

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

// A request as `bench send` takes it, CODE and ARGUMENT, or its bytes in quotes.
void DrivenPanel::ask(const QString &request)
{
    const QByteArray bytes = request.startsWith('"')
        ? unprintable(request.mid(1, request.lastIndexOf('"') - 1).toLatin1())
        : requestOf(request.section(' ', 0, 0).toLatin1(), request.section(' ', 1), 0, "KLV-100");
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

} // namespace

int runDrive(const QStringList &args)
{
    const bool help = args.value(1) == "--help" || args.value(1) == "-h";
    PanelOptions options;
    options.wrapper = help ? QStringList() : args.mid(1);
    quitOnInterrupt();
    DrivenPanel panel(options);
    if (help) {
        printf(driveHelp, qPrintable(panel.obey("help", {})));
        return 0;
    }
    printf("%s\n", qPrintable(panel.folder()));
    fflush(stdout);
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
        printf("%s\n", answer.isEmpty() ? "ok" : answer.toUtf8().replace('\n', ' ').constData());
        fflush(stdout);
        notifier.setEnabled(true);
    });
    return QCoreApplication::exec();
}
