#include "commands/commands.h"
#include "commands/interrupt.h"
#include "panel/filewrite.h"
#include "panel/folders.h"
#include "panel/virtualpanel.h"

#include <QCommandLineParser>
#include <QDir>
#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

const QByteArray presence = ":00800080\r\n"; // asks whether COM1 is there, and is its own answer

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    const int n = values.size();
    return n ? (values[(n - 1) / 2] + values[n / 2]) / 2 : std::nan("");
}

// One line of the table; true if the figure keeps its limit. Not a number never does.
bool report(const char *what, double value, double limit, const char *unit)
{
    const bool good = value <= limit;
    printf("%-44s %9.2f %-3s  limit %7.2f  %s\n", what, value, unit, limit,
           good ? "ok" : "EXCEEDED");
    fflush(stdout);
    return good;
}

void note(const char *what, double value, const char *unit)
{
    printf("%-44s %9.2f %s\n", what, value, unit);
    fflush(stdout);
}

// Sends presence requests and times the answers where they leave and enter the panel.
class Asker {
public:
    explicit Asker(PtyPort *port)
        : port_(port)
    {
        in_ = QObject::connect(port, &PtyPort::intoPanel,
                               [this](const QByteArray &, qint64 ns) { sent_ = ns; });
        out_ = QObject::connect(port, &PtyPort::fromPanel, [this](const QByteArray &, qint64 ns) {
            if (!answered_)
                answered_ = ns;
        });
    }
    ~Asker()
    {
        QObject::disconnect(in_);
        QObject::disconnect(out_);
    }
    // Milliseconds from the last byte in to the first byte out; not a number when none came.
    double ask(int ms)
    {
        answered_ = 0;
        port_->send(presence);
        return waitFor([this] { return answered_ != 0; }, ms) ? double(answered_ - sent_) / 1e6
                                                              : std::nan("");
    }

private:
    PtyPort *port_;
    std::atomic<qint64> sent_{0}, answered_{0};
    QMetaObject::Connection in_, out_;
};

void start(VirtualPanel &panel)
{
    panel.powerOn();
    Asker asker(panel.port(Port::ttyO1));
    for (int i = 0; i < 20; ++i) {
        if (!std::isnan(asker.ask(1000)))
            return;
    }
    throw BenchError(QString("the agent does not answer: ") + panel.errorOutput());
}

bool measureLatency(VirtualPanel &panel, int requests)
{
    Asker asker(panel.port(Port::ttyO1));
    QVector<double> times;
    for (int i = 0; i < requests; ++i) {
        // Anywhere between two ticks of the agent.
        QThread::usleep(ulong(QRandomGenerator::global()->bounded(150000)));
        times.append(asker.ask(1000));
    }
    const bool all =
        std::none_of(times.begin(), times.end(), [](double t) { return std::isnan(t); });
    const double last = all ? *std::max_element(times.begin(), times.end()) : std::nan("");
    const bool good = report("reply to \"8000\", median", median(times), 55, "ms");
    return report("reply to \"8000\", latest", last, 130, "ms") && good;
}

// Processor time of all threads of a process, in nanoseconds.
double processorTime(qint64 pid)
{
    double sum = 0;
    const QDir tasks(QString("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        sum += readWhole(tasks.filePath(task) + "/schedstat").split(' ').first().toDouble();
    return sum;
}

bool measureIdle(VirtualPanel &panel, int seconds)
{
    const qint64 begin = monotonicNs();
    const double before = processorTime(panel.agentPid());
    waitFor(interrupted, seconds * 1000);
    const double used = processorTime(panel.agentPid()) - before;
    return report("idle, of one core", 100 * used / double(monotonicNs() - begin), 0.5, "%");
}

double residentMiB(qint64 pid)
{
    for (const QByteArray &line : readWhole(QString("/proc/%1/status").arg(pid)).split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).simplified().split(' ').first().toDouble() / 1024;
    }
    return std::nan("");
}

// Milliseconds from power-on to the first frame with anything on it, as a viewer that waits for it
// gets it.
double firstFrame(VirtualPanel &panel)
{
    const qint64 begin = monotonicNs();
    panel.powerOn();
    bool painted = false;
    panel.screen().waitFor(
        [](const QImage &image) { return image.pixelColor(400, 240) != Qt::black; }, 10000,
        &painted);
    const double ms = double(monotonicNs() - begin) / 1e6;
    panel.powerOff();
    return painted ? ms : std::nan("");
}

bool measureBesideEmptyWindow(int starts)
{
    PanelOptions options;
    VirtualPanel agent(options);
    options.agent = programFolder() + "/bench-window";
    VirtualPanel window(options);
    start(agent); // a first boot makes its files; the starts that follow are like any other
    const double agentSize = residentMiB(agent.agentPid());
    agent.powerOff();
    window.powerOn();
    waitFor(interrupted, 1500);
    const double windowSize = residentMiB(window.agentPid());
    window.powerOff();

    QVector<double> agentStarts, windowStarts;
    for (int i = 0; i < starts && !interrupted(); ++i) {
        agentStarts.append(firstFrame(agent));
        windowStarts.append(firstFrame(window));
    }
    note("resident, empty window", windowSize, "MiB");
    note("resident, agent", agentSize, "MiB");
    const bool good = report("resident, agent to empty window", agentSize / windowSize, 1.15, "x");
    const double empty = median(windowStarts), own = median(agentStarts);
    note("first frame, empty window", empty, "ms");
    note("first frame, agent with a boot's scripts", own, "ms");
    return report("first frame, agent to empty window", own / empty, 3.5, "x") && good;
}

} // namespace

int runMeasure(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Measures speed and size of the agent on a virtual panel and prints the figures with "
        "their\n"
        "limits. The machine should be idle otherwise. Exits 0 if every limit is kept.");
    parser.addHelpOption();
    parser.addOptions({
        {"requests", "Requests for the latency (default 200; 0 leaves it out).", "count", "200"},
        {"idle", "Seconds to watch the idle agent (default 30; 0 leaves it out).", "seconds", "30"},
        {"starts", "Starts to time (default 21).", "count", "21"},
    });
    parser.process(args);
    quitOnInterrupt();

    bool good = true;
    const int requests = parser.value("requests").toInt(), idle = parser.value("idle").toInt();
    if (requests || idle) {
        VirtualPanel panel;
        start(panel);
        good = (!requests || measureLatency(panel, requests)) && good;
        good = (!idle || measureIdle(panel, idle)) && good;
    }
    return measureBesideEmptyWindow(parser.value("starts").toInt()) && good ? 0 : 1;
}
