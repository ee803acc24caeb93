#include "commands/commands.h"
#include "commands/interrupt.h"
#include "fixture/pfvpstand.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace {

struct Mode {
    const char *name, *argument;
    PfvpTable table;
    const char *startText, *stopText;
};
const Mode modes[] = {
    {"ems", "PFVP_EMS", PfvpTable::Ems, "EMS Start Test", "EMS Stop Test"},
    {"emi", "PFVP_EMI", PfvpTable::Emi, "EMI Start Test", "EMI Stop Test"},
    {"rd", "PFVP_RD", PfvpTable::Rd, "Auto Start", "Auto Stop"},
};
const char *const peerDies = "peer";
constexpr int peerDiesCycles = 7; // enough to tell a peer that is found again from one that is not

// Failures that an item may have.
struct Range {
    int least, most;
};

// The peer looks at its USB ports in turn, 300 ms each, and the panel waits no longer: a request
// may just miss it, and the answer is then there for the next. `all` is the number of cycles.
Range allowed(const QString &need, int all, const QStringList &faults)
{
    const bool usb = need.startsWith("usb"), wire = usb || need.startsWith("com");
    for (const QString &fault : faults) {
        const QString kind = fault.section(':', 0, 0);
        if (kind == need)
            return {all, all};
        // Gone for a cycle and part of the next; a USB port is opened anew in that one, used from
        // the one after, and may miss again.
        if (kind == peerDies && wire)
            return usb ? Range{2, 4} : Range{1, 2};
        if (fault.section(':', 1) != need || !wire)
            continue;
        if (kind == "late" && usb)
            return {1, 2};
        if (kind == "line-end")
            return {0, usb ? all : 0}; // what is left over shifts the next answer
        return {all, all};
    }
    return {need.isEmpty() ? all : 0, need.isEmpty() ? all : usb ? 1 : 0};
}

int sumOf(const PfvpCounts &counts, bool withFails)
{
    int sum = 0;
    for (const PfvpCount &count : counts)
        sum += count.pass + (withFails ? count.fail : 0);
    return sum;
}

class Run {
public:
    Run(const Mode &mode, int cycles, const QStringList &faults)
        : mode_(mode)
        , cycles_(cycles)
        , faults_(faults)
        , needs_(pfvpNeeds(mode.table))
    {
    }

    void prepare();
    bool cycles();
    bool judge();
    void saveScreen(const QString &file);

private:
    bool await(int tests);
    void dieAndReturn(int cycle);

    const Mode &mode_;
    const int cycles_;
    const QStringList faults_;
    const QVector<const char *> needs_;
    PfvpStand stand_;
    PfvpCounts counts_;
};

void Run::prepare()
{
    for (const QString &fault : faults_) {
        const QString problem = fault == peerDies ? QString() : stand_.setFault(fault);
        if (!problem.isEmpty())
            throw BenchError(problem + " (`bench pfvp --help` shows them)");
    }
    puts("Two panels boot, one as slave ...");
    stand_.start(mode_.argument);
    if (!stand_.operatorOfPanel.press(mode_.startText))
        throw BenchError("the start button does not come up");
}

// Dead for the third cycle.
void Run::dieAndReturn(int cycle)
{
    if (!faults_.contains(peerDies))
        return;
    if (cycle == 2) {
        puts("The peer dies.");
        stand_.peer.powerOff();
    } else if (cycle == 3) {
        puts("The peer returns ...");
        stand_.startPeer();
    }
}

// In slices, so that Ctrl-C is heard.
bool Run::await(int tests)
{
    for (int second = 0; second < 120 && !interrupted(); ++second) {
        counts_ = stand_.operatorOfPanel.countsAfter(mode_.table, tests, 1000);
        if (sumOf(counts_, true) >= tests)
            return true;
    }
    return false;
}

bool Run::cycles()
{
    int passes = 0;
    for (int cycle = 1; cycle <= cycles_; ++cycle) {
        if (!await(cycle * needs_.size()))
            return false;
        const int now = sumOf(counts_, false);
        printf("cycle %2d of %d: %d of %d items passed\n", cycle, cycles_, now - passes,
               needs_.size());
        fflush(stdout);
        passes = now;
        dieAndReturn(cycle);
    }
    return stand_.operatorOfPanel.press(mode_.stopText, 60000);
}

bool Run::judge()
{
    bool good = true;
    printf("\n  %-12s %6s %6s   allowed\n", "needs", "pass", "fail");
    for (int i = 0; i < needs_.size(); ++i) {
        const Range range = allowed(needs_[i], cycles_, faults_);
        const PfvpCount count = counts_.value(i, {-1, -1});
        const bool right = range.least <= count.fail && count.fail <= range.most
            && count.pass + count.fail == cycles_;
        good &= right;
        printf("  %-12s %6d %6d   %d to %d passes%s\n", needs_[i] ? needs_[i] : "(no test)",
               count.pass, count.fail, qMax(0, cycles_ - range.most), cycles_ - range.least,
               right ? "" : "   WRONG");
    }
    return good;
}

void Run::saveScreen(const QString &file)
{
    stand_.operatorOfPanel.sees(mode_.startText, 60000);
    QDir().mkpath(QFileInfo(file).path());
    if (!stand_.panel.screen().grab(60000).save(file))
        throw BenchError("cannot write " + file);
    printf("\nScreen: %s\n", qPrintable(file));
}

} // namespace

int runPfvp(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Cables two virtual panels, one of them in slave mode, starts the cycle of a PFVP mode on "
        "the\nother by touch, and compares the counters on its screen with what the cabling "
        "allows.\nA cycle takes 10 to 20 s.\n\nFaults:\n"
        + PfvpStand::wireFaults()
        + "  peer           the peer loses power for the third cycle and returns (6 cycles or "
          "more)\n"
          "  and those of `bench fault list` that act on the panel, with values beyond an item's "
          "limits:\n  rail-5v, rail-3v3, battery, rtc, sram, ddr.");
    parser.addHelpOption();
    parser.addPositionalArgument("mode", "ems, emi or rd.");
    parser.addOptions({
        {"cycles", "Cycles to run.", "number", "3"},
        {"fault", "Begin with this fault; may be given several times.", "name[:value]"},
        {"screenshot", "Where the last screen goes.", "file", "out/pfvp-MODE.png"},
    });
    parser.process(args);
    const QString name = parser.positionalArguments().value(0);
    const int cycles = parser.value("cycles").toInt();
    const QStringList faults = parser.values("fault");
    const Mode *mode = std::find_if(std::begin(modes), std::end(modes),
                                    [&](const Mode &row) { return name == row.name; });
    if (mode == std::end(modes))
        throw BenchError(QString("there is no mode \"%1\": use ems, emi or rd").arg(name));
    if (cycles < (faults.contains(peerDies) ? peerDiesCycles : 1))
        throw BenchError(
            QString("--cycles: at least 1, and %1 with the fault peer").arg(peerDiesCycles));
    quitOnInterrupt();
    Run run(*mode, cycles, faults);
    run.prepare();
    if (!run.cycles())
        throw BenchError(interrupted() ? "interrupted" : "the panel did not finish its cycles");
    const bool good = run.judge();
    run.saveScreen(parser.value("screenshot").replace("MODE", name));
    puts(good ? "PASSED" : "FAILED");
    return good ? 0 : 1;
}
