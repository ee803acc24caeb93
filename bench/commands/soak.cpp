#include "commands/commandline.h"
#include "commands/commands.h"
#include "commands/talker.h"
#include "panel/gauges.h"
#include "panel/interrupt.h"

#include <QDir>
#include <QTimer>

#include <climits>
#include <unistd.h>

namespace {

constexpr int answerMs = 20000, startMs = 120000;

// The last line of a terminal, which changes in place; empty takes it away.
void showStatus(const QString &line)
{
    if (isatty(STDOUT_FILENO)) {
        printf("\r\033[K%s", qPrintable(line));
        fflush(stdout);
    }
}

struct Size {
    qint64 pid = 0;
    double memory = 0; // MiB
    int descriptors = 0;
};

int descriptorsOf(qint64 pid)
{
    const QDir open(QString("/proc/%1/fd").arg(pid));
    return int(open.entryList(QDir::System | QDir::Files).size());
}

// Panels at a level that are on.
class Crowd {
public:
    Crowd(int count, const QString &level, const QVector<QByteArray> &requests)
    {
        for (int i = 0; i < count && !interrupted(); ++i) {
            showStatus(QString("  starting panel %1 of %2").arg(i + 1).arg(count));
            panels.push_back(std::make_unique<VirtualPanel>());
            VirtualPanel &panel = *panels.back();
            panel.setLevel(level);
            panel.powerOn();
            if (!waitFor([&] { return interrupted() || panel.isReady(panel.link()); }, startMs))
                throw BenchError(QString("panel %1 does not open its link").arg(i + 1));
            talkers.push_back(std::make_unique<Talker>(panel, requests, answerMs));
        }
        showStatus({});
    }
    // Shared out among them; returns how many are left, which is none if it was not interrupted.
    int ask(int count, const QString &what)
    {
        QElapsedTimer clock;
        clock.start();
        int left = count, panels = int(talkers.size());
        for (const auto &talker : talkers) {
            const int share = left / panels--;
            left -= share;
            talker->ask(share);
        }
        do {
            waitFor(interrupted, 200);
            left = 0;
            for (const auto &talker : talkers)
                left += talker->left;
            showStatus(QString("  %1: %2 of %3 exchanges, %4 a second")
                           .arg(what)
                           .arg(count - left)
                           .arg(count)
                           .arg(1000.0 * (count - left) / double(clock.elapsed()), 0, 'f', 1));
        } while (left && !interrupted());
        showStatus({});
        return left;
    }
    // As a row of the table, too.
    QVector<Size> sizes(const char *when, const QVector<Size> &before = {}) const
    {
        QVector<Size> sizes;
        double sum = 0;
        for (const auto &panel : panels) {
            const qint64 pid = panel->agentPid();
            sizes.append({pid, residentMiB(pid), INT_MAX});
            sum += sizes.last().memory;
        }
        // The least of several looks: an answer is followed by a line of the log, whose program has
        // descriptors of its own for a while. No look is needed once there are as few as before.
        const auto isAtRest = [&] {
            bool rest = !before.isEmpty();
            for (int i = 0; i < sizes.size(); ++i) {
                int &least = sizes[i].descriptors;
                least = qMin(least, descriptorsOf(sizes[i].pid));
                rest = rest && least <= before[i].descriptors;
            }
            return rest;
        };
        waitFor(isAtRest, before.isEmpty() ? 1000 : answerMs);
        const auto [small, large] =
            std::minmax_element(sizes.begin(), sizes.end(),
                                [](const Size &a, const Size &b) { return a.memory < b.memory; });
        const auto [few, many] =
            std::minmax_element(sizes.begin(), sizes.end(), [](const Size &a, const Size &b) {
                return a.descriptors < b.descriptors;
            });
        printf("| %-13s | %6.2f | %6.2f to %6.2f | %3d to %3d     |\n", when, sum / sizes.size(),
               small->memory, large->memory, few->descriptors, many->descriptors);
        fflush(stdout);
        return sizes;
    }

    std::vector<std::unique_ptr<VirtualPanel>> panels;
    std::vector<std::unique_ptr<Talker>> talkers; // end before their panels do
};

// What is asked at a level: items, pictures, identities; ports that are opened and closed seldom.
struct Mixture {
    QVector<const char *> often, seldom;
};
const QMap<QString, Mixture> mixtures{
    {"T1",
     {{"8000", "9003", "0701", "8800", "9030", "AB00", "9021", "8801", "0702", "9504"},
      {"8107", "FF01"}}},
    {"BI", {{"8800", "9504", "9003", "9507", "8801"}, {"8500"}}},
};

// And a damaged frame before a good one.
QVector<QByteArray> requestsOf(const Mixture &mixture)
{
    QVector<QByteArray> requests;
    for (int i = 0; i < 100; ++i)
        requests << shortRequest(mixture.often[i % mixture.often.size()]);
    for (const char *code : mixture.seldom)
        requests << shortRequest(code);
    return requests << ":00800081\r\n" + shortRequest(mixture.often[0]);
}

// True if memory and descriptors stay and everything is answered.
bool soakExchanges(int exchanges, int count, const QString &level)
{
    const QVector<QByteArray> requests = requestsOf(mixtures[level]);
    Crowd crowd(count, level, requests);
    puts("| Agents        | MiB    | least to most    | descriptors    |\n|---|---|---|---|");
    // Each kind of request once: pictures and libraries are there then.
    if (interrupted() || crowd.ask(count * requests.size(), "before"))
        return false;
    QElapsedTimer clock;
    clock.start();
    const QVector<Size> before = crowd.sizes("before");
    int left = crowd.ask(exchanges / 2, "first half") + exchanges - exchanges / 2;
    if (!interrupted()) {
        crowd.sizes("in the middle", before);
        left = crowd.ask(exchanges - exchanges / 2, "second half");
    }
    const double seconds = double(clock.elapsed()) / 1000;
    const QVector<Size> after = crowd.sizes(interrupted() ? "interrupted" : "after", before);
    double growth = -INFINITY;
    int unanswered = 0, other = 0;
    for (int i = 0; i < count; ++i) {
        growth = qMax(growth, after[i].memory - before[i].memory);
        other += after[i].descriptors != before[i].descriptors;
        unanswered += crowd.talkers[size_t(i)]->unanswered;
    }
    printf("%d exchanges over %d panels in %.0f s, %.1f a second; %d unanswered; greatest growth "
           "%.2f MiB; %d panels with other descriptors\n",
           exchanges - left, count, seconds, (exchanges - left) / seconds, unanswered, growth,
           other);
    return !left && !unanswered && !other && growth < 1;
}

bool measurePanels(const QVector<int> &counts)
{
    constexpr int idleMs = 10000, requests = 40;
    puts("| Panels | MiB each | processor each, idle | \"8000\", median | worst     |\n"
         "|---|---|---|---|---|");
    bool answered = true;
    for (int count : counts) {
        Crowd crowd(count, "T1", {shortRequest("8000")});
        if (interrupted() || crowd.ask(count * 5, "warm"))
            return false;
        double memory = 0, used = 0;
        for (const auto &panel : crowd.panels) {
            memory += residentMiB(panel->agentPid());
            used -= processorTime(panel->agentPid());
        }
        const qint64 begin = monotonicNs();
        waitFor(interrupted, idleMs);
        for (const auto &panel : crowd.panels)
            used += processorTime(panel->agentPid());
        const double idle = 100 * used / double(monotonicNs() - begin) / count;
        if (crowd.ask(count * requests, "asking"))
            return false;
        QVector<double> latencies;
        for (const auto &talker : crowd.talkers)
            latencies += talker->latencies();
        const double worst = *std::max_element(latencies.begin(), latencies.end());
        answered = answered && std::isfinite(worst);
        printf("| %6d | %8.2f | %18.2f %% | %11.1f ms | %6.1f ms |\n", count, memory / count, idle,
               median(latencies), worst);
        fflush(stdout);
    }
    return answered;
}

} // namespace

int runSoak(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Runs virtual panels for long, in one of three ways:\n"
        "--kills      takes them from ICT to HMI again and again; kills each at random moments "
        "and\n"
        "             at aimed ones (end checks, forced changes, identities, calibrations), boots\n"
        "             it and judges level, results, identities and calibration\n"
        "--exchanges  asks them side by side without a pause; memory and descriptors before, in\n"
        "             the middle and after\n"
        "--panels     with several numbers: what a panel costs as their number grows\n"
        "Exits 0 if nothing was lost, no request was left unanswered and no agent grew by 1 MiB.\n"
        "Example: bench soak --kills 1000 --panels 8 --seed 7",
        {{"kills", "How many kills.", "count"},
         {"seed",
          "Repeats whether a kill hits a boot, the work or a request, and how late (default 1).",
          "number", "1"},
         {"exchanges", "How many requests.", "count"},
         {"level", "At which (T1; at BI a panel logs no traffic and answers faster).", "level",
          "T1"},
         {"panels", "How many side by side (default 4).", "count,...", "4"}});
    const QVector<int> panels = parser.numbers("panels", 1, 128);
    const int seed = parser.number("seed", 0, INT_MAX);
    if (parser.isSet("kills") + parser.isSet("exchanges") + (panels.size() > 1) != 1)
        throw BenchError("either --kills, or --exchanges, or --panels with several numbers");
    for (const auto &[option, owner] : {std::pair("seed", "kills"), {"level", "exchanges"}}) {
        if (parser.isSet(option) && !parser.isSet(owner))
            throw BenchError(QString("--%1 goes with --%2 only").arg(option, owner));
    }
    if (parser.isSet("kills")) {
        const int kills = parser.number("kills", 1, 1000000);
        return runTraced(
            {"kills", QString::number(kills), QString::number(panels[0]), QString::number(seed)});
    }
    const QString level = parser.value("level").toUpper();
    if (!mixtures.contains(level))
        throw BenchError(QString("--level is %1, not %2")
                             .arg(mixtures.keys().join(" or "), parser.value("level")));
    quitOnInterrupt();
    const bool good = parser.isSet("exchanges")
        ? soakExchanges(parser.number("exchanges", 1, 1000000000), panels[0], level)
        : measurePanels(panels);
    return good ? 0 : 1;
}
