#include "commands/commandline.h"
#include "commands/commands.h"
#include "commands/talker.h"
#include "panel/files.h"
#include "panel/gauges.h"
#include "panel/interrupt.h"
#include "panel/panelimage.h"

#include <QRandomGenerator>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

namespace {

const QVector<QByteArray> presence{shortRequest("8000")};
constexpr int answerMs = 1000;

// One line of the table; whether the figure keeps its limit, if it has one. Not a number never
// does.
bool report(const char *what, double value, const char *unit, double limit = INFINITY)
{
    const bool good = value <= limit;
    printf("%-44s %9.2f %-3s", what, value, unit);
    if (std::isfinite(limit))
        printf("  limit %7.2f  %s", limit, good ? "ok" : "EXCEEDED");
    puts("");
    fflush(stdout);
    return good;
}

// Milliseconds from the last byte in to the first byte out; infinity when none came.
double latency(Talker &talker)
{
    talker.ask(1);
    waitFor([&] { return !talker.left || interrupted(); }, INT_MAX);
    endIfInterrupted();
    return talker.latencies().value(0, INFINITY);
}

void start(VirtualPanel &panel)
{
    panel.powerOn();
    Talker talker(panel, presence, answerMs);
    for (int i = 0; i < 20; ++i) {
        if (std::isfinite(latency(talker)))
            return;
    }
    throw BenchError(QString("the agent does not answer: ") + panel.errorOutput());
}

bool measureLatency(VirtualPanel &panel, int requests)
{
    Talker talker(panel, presence, answerMs);
    QVector<double> times;
    for (int i = 0; i < requests; ++i) {
        // Anywhere between two ticks of the agent.
        QThread::usleep(ulong(QRandomGenerator::global()->bounded(150000)));
        times.append(latency(talker));
    }
    const double last = *std::max_element(times.begin(), times.end());
    const bool good = report("reply to \"8000\", median", median(times), "ms", 55);
    return report("reply to \"8000\", latest", last, "ms", 130) && good;
}

bool measureIdle(VirtualPanel &panel, int seconds)
{
    const qint64 begin = monotonicNs();
    const double before = processorTime(panel.agentPid());
    waitFor(interrupted, seconds * 1000);
    endIfInterrupted();
    const double used = processorTime(panel.agentPid()) - before;
    return report("idle, of one core", 100 * used / double(monotonicNs() - begin), "%", 0.5);
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
    return painted ? ms : INFINITY;
}

// The image's programs that a boot has called do nothing from now on, so that a start is the
// agent's own time. A shell's lines that start as many programs.
QString silenceScripts(const VirtualPanel &panel)
{
    QString lines;
    for (const ToolCall &call : panel.calls()) {
        const QString program = panel.hostPath(toolPath(call.tool));
        QFile::remove(program);
        QFile::link("/usr/bin/true", program);
        lines += "sh -c /usr/bin/true\n";
    }
    return lines;
}

bool measureBesideEmptyWindow(int starts)
{
    PanelOptions options;
    VirtualPanel agent(options);
    start(agent); // a first boot makes its files; the starts that follow are like any other
    const double agentSize = residentMiB(agent.agentPid());
    agent.powerOff();
    options.agent = programFolder() + "/bench-window";
    options.wrapper = QStringList{"sh", "-c", silenceScripts(agent) + "exec \"$0\""};
    VirtualPanel window(options);
    window.powerOn();
    waitFor(interrupted, 1500);
    const double windowSize = residentMiB(window.agentPid());
    window.powerOff();

    QVector<double> agentStarts, windowStarts;
    for (int i = 0; i < starts; ++i) { // by turns: whatever else runs hits both
        endIfInterrupted();
        agentStarts.append(firstFrame(agent));
        windowStarts.append(firstFrame(window));
    }
    report("resident, empty window", windowSize, "MiB");
    report("resident, agent", agentSize, "MiB");
    const bool good = report("resident, agent to empty window", agentSize / windowSize, "x", 1.15);
    const double empty = median(windowStarts), own = median(agentStarts);
    report("first frame, empty window", empty, "ms");
    report("first frame, agent", own, "ms");
    return report("first frame, agent to empty window", own / empty, "x", 1.25) && good;
}

} // namespace

int runMeasure(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Measures speed and size of the agent on a virtual panel and prints the figures with "
        "their\n"
        "limits. The machine should be idle otherwise. Exits 0 if every limit is kept.",
        {{"requests", "Requests for the latency (default 200; 0 leaves it out).", "count", "200"},
         {"idle", "Seconds to watch the idle agent (default 30; 0 leaves it out).", "seconds",
          "30"},
         {"starts", "Starts to time (default 21).", "count", "21"}});
    const int requests = parser.number("requests", 0, 1000000);
    const int idle = parser.number("idle", 0, 86400), starts = parser.number("starts", 1, 1000000);
    quitOnInterrupt();

    bool good = true;
    if (requests || idle) {
        VirtualPanel panel;
        start(panel);
        good = (!requests || measureLatency(panel, requests)) && good;
        good = (!idle || measureIdle(panel, idle)) && good;
    }
    return measureBesideEmptyWindow(starts) && good ? 0 : 1;
}
