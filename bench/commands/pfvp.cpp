#include "commands/commandline.h"
#include "commands/commands.h"
#include "fixture/pfvpstand.h"
#include "panel/board.h"
#include "panel/interrupt.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace {

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

struct Order {
    PfvpTable table;
    int cycles;
    QStringList faults;
    const PfvpMode &mode = pfvpMode(table);
};

// For a cycle, in seconds; that of the ARM machine on a busy host.
int patience()
{
    return boardWanted() ? 900 : 120;
}

void prepare(PfvpStand &stand, const Order &order)
{
    for (const QString &fault : order.faults) {
        if (fault != peerDies)
            stand.setFault(fault);
    }
    puts("Two panels boot, one as slave ...");
    fflush(stdout);
    stand.start(order.table);
    if (Board *board = stand.panel.board()) {
        const auto shown = [board](const char *command) {
            return board->run(command).simplified();
        };
        printf("ttyUSB0: %s\nttyGS0: %s\n",
               shown("readlink /sys/class/tty/ttyUSB0/device/driver").constData(),
               shown("grep ^g_serial /proc/tty/drivers; ls /dev/ttyGS0").constData());
    }
    if (!stand.operatorOfPanel.press(order.mode.startText, 1000 * patience()))
        throw BenchError("the start button does not come up");
}

// After so many tests; looks in slices, so that Ctrl-C is heard.
PfvpCounts await(PfvpStand &stand, PfvpTable table, int tests)
{
    for (int second = 0; second < patience() && !interrupted(); ++second) {
        const PfvpCounts counts = stand.operatorOfPanel.countsAfter(table, tests, 1000);
        if (sumOf(counts) >= tests)
            return counts;
    }
    endIfInterrupted();
    throw BenchError("the panel did not finish its cycles");
}

// Dead for the third cycle.
void dieAndReturn(PfvpStand &stand, int cycle)
{
    if (cycle == 2) {
        puts("The peer dies.");
        stand.peer.powerOff();
    } else if (cycle == 3) {
        puts("The peer returns ...");
        stand.startPeer();
    }
}

PfvpCounts run(PfvpStand &stand, const Order &order)
{
    const int items = order.mode.needs.size();
    PfvpCounts counts;
    for (int cycle = 1, passes = 0; cycle <= order.cycles; ++cycle) {
        counts = await(stand, order.table, cycle * items);
        const int now = sumOf(counts, false);
        printf("cycle %2d of %d: %d of %d items passed\n", cycle, order.cycles, now - passes,
               items);
        fflush(stdout);
        passes = now;
        if (order.faults.contains(peerDies))
            dieAndReturn(stand, cycle);
    }
    if (!stand.operatorOfPanel.press(order.mode.stopText, 1000 * patience()))
        throw BenchError("the panel did not finish its cycles");
    return counts;
}

bool judge(const PfvpCounts &counts, const Order &order)
{
    bool good = true;
    printf("\n  %-12s %6s %6s   allowed\n", "needs", "pass", "fail");
    for (int i = 0; i < order.mode.needs.size(); ++i) {
        const char *const need = order.mode.needs[i];
        const Range range = allowed(need, order.cycles, order.faults);
        const PfvpCount count = counts.value(i, {-1, -1});
        const bool right = range.least <= count.fail && count.fail <= range.most
            && count.pass + count.fail == order.cycles;
        good &= right;
        printf("  %-12s %6d %6d   %d to %d passes%s\n", need ? need : "(no test)", count.pass,
               count.fail, qMax(0, order.cycles - range.most), order.cycles - range.least,
               right ? "" : "   WRONG");
    }
    return good;
}

void saveScreen(PfvpStand &stand, const Order &order, const QString &file)
{
    stand.operatorOfPanel.sees(order.mode.startText);
    QDir().mkpath(QFileInfo(file).path());
    if (!stand.panel.screen().grab(60000).save(file))
        throw BenchError("cannot write " + file);
    printf("\nScreen: %s\n", qPrintable(file));
}

// Throws BenchError for a name that is none.
PfvpTable tableOf(const QString &name)
{
    for (PfvpTable table : {PfvpTable::Ems, PfvpTable::Emi, PfvpTable::Rd}) {
        if (name == pfvpMode(table).name)
            return table;
    }
    throw BenchError(QString("there is no mode \"%1\": use ems, emi or rd").arg(name));
}

} // namespace

int runPfvp(const QStringList &args)
{
    const CommandLine parser(
        args,
        "Cables two virtual panels, one of them in slave mode, starts the cycle of a PFVP mode on "
        "the\nother by touch, and compares the counters on its screen with what the cabling "
        "allows.\nA cycle takes 10 to 20 s.\n\nFaults:\n"
            + PfvpStand::wireFaults()
            + "  peer           the peer loses power for the third cycle and returns (7 cycles or "
              "more)\n"
              "  and those of `bench fault list` that act on the panel, with values beyond an "
              "item's limits:\n  rail-5v, rail-3v3, battery, rtc, sram, ddr.",
        {{"cycles", "Cycles to run.", "number", "3"},
         {"fault", "Begin with this fault; may be given several times.", "name[:value]"},
         {"screenshot", "Where the last screen goes.", "file", "out/pfvp-MODE.png"}},
        {{"mode", "ems, emi or rd."}});
    const QString name = parser.positionalArguments().value(0);
    const QStringList faults = parser.values("fault");
    const int least = faults.contains(peerDies) ? peerDiesCycles : 1;
    const Order order{tableOf(name), parser.number("cycles", least, 9999), faults};
    quitOnInterrupt();
    PfvpStand stand;
    prepare(stand, order);
    const bool good = judge(run(stand, order), order);
    saveScreen(stand, order, parser.value("screenshot").replace("MODE", name));
    puts(good ? "PASSED" : "FAILED");
    return good ? 0 : 1;
}
