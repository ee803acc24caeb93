#include "commands/boardrig.h"

#include "panel/interrupt.h"
#include "panel/wait.h"

#include <random>

// Cuts of the ARM machine's power in the middle of production. The panel's data lie on an ext4 disk
// of their own; the emulator stops between two instructions and resets the machine.
namespace {

const char ictFolder[] = "/usr/local/ict/";
constexpr int longestMs = 6000; // from the open link to the cut

// Requests of a pass; the line of their item in the level's results, -1 where the level has none.
const struct {
    const char *code;
    int item[LevelCount];
} pass[] = {
    {"8000", {3, 3, -1, 3}},   {"8500", {6, 6, 1, 6}},    {"AB00", {0, 0, -1, 0}},
    {"9003", {-1, 17, 3, -1}}, {"A200", {12, 13, 4, -1}}, {"0602", {9, -1, -1, -1}},
};

// What may be on the disk after a cut.
struct Known {
    QByteArray level = "ICT\n", asked = level; // confirmed, and asked for last
    QVector<QByteArray> items; // of the level: the results that each may have
    int open = -1; // the item asked for last: its result may not have been written
    QByteArray result; // of `open`, once answered
    QByteArray id, newId; // confirmed, and asked for last
    int compared = 0, settled = 0; // results looked at, and those of them with one legal value
};

// The results of a level as its file has them, one character each.
QByteArray resultsAt(BoardRig &rig, int level)
{
    const QString path =
        QString("%1HMI_%2_TEST_Flag.txt").arg(QLatin1String(ictFolder), levelName(level));
    QByteArray results;
    for (const QByteArray &line : rig.run("tr '\\000' ' ' <" + path).split('\n')) {
        if (!line.trimmed().isEmpty())
            results += line.trimmed().right(1);
    }
    return results;
}

void expectAsIs(BoardRig &rig, Known *known)
{
    known->items.clear();
    for (const char result : resultsAt(rig, rig.level))
        known->items << QByteArray(1, result);
    known->open = -1;
}

// False if the panel did not answer in time. The request answered before this one has left its
// result on the disk then.
bool askItem(BoardRig &rig, const char *code, int item, int ms, Known *known)
{
    if (item >= known->items.size())
        throw BenchError(QString("The results of %1 have no line %2").arg(rig.level).arg(item + 1));
    const int before = known->open;
    const QByteArray itsResult = known->result;
    known->items[item] += "F1"; // while running as failed
    const bool stores = code == QByteArray("0602");
    const QByteArray answer = rig.ask(code, stores ? known->newId : QByteArray(), ms);
    if (answer.isEmpty())
        return false;
    if (before >= 0 && before != item)
        known->items[before] = itsResult;
    known->open = item;
    known->result = answer.startsWith("KLV-") || answer == code ? "1" : "F";
    if (stores)
        known->id = known->newId;
    return true;
}

// One power-up until the cut, `cutMs` after the panel's link is open: rounds of the items, of which
// every second finds the memory wrong, and at times the change to the next level.
void work(BoardRig &rig, int cutMs, int turn, std::mt19937 &random, Known *known)
{
    QElapsedTimer clock;
    clock.start();
    const auto left = [&] { return int(qMax<qint64>(1, cutMs - clock.elapsed())); };
    known->newId = QString("SEMI2511%1").arg(turn, 4, 10, QChar('0')).toLatin1();
    for (int round = turn; clock.elapsed() < cutMs; ++round) {
        rig.fixture.act("fault", round % 2 ? "set ddr" : "clear ddr");
        for (const auto &request : pass) {
            const int item = request.item[rig.level];
            if (item >= 0 && !askItem(rig, request.code, item, left(), known))
                return;
        }
        if (random() % 3 == 0 && clock.elapsed() < cutMs) {
            const QByteArray next[] = {"T1", "BI", "T2", "ICT"};
            known->asked = next[rig.level].leftJustified(3) + '\n';
            if (rig.ask("KLV-", next[rig.level], left()).contains("PASS"))
                known->level = known->asked;
            QThread::msleep(ulong(left()));
            return;
        }
    }
}

// What the panel has lost or broken, after it has booted again.
QString lost(BoardRig &rig, int levelBefore, Known *known)
{
    const QByteArray level = rig.run(QString("cat %1HMI_TEST_LEVEL.txt").arg(ictFolder));
    const QByteArray id =
        rig.run(QString("cat %1HMI_SEMIMACHINE_ID.txt 2>/dev/null").arg(ictFolder));
    const QByteArray kernel = rig.run("dmesg | grep -i 'ext4-fs.*\\(error\\|corrupt\\)'");
    QString fault;
    if (level != known->level && level != known->asked)
        fault += QString("level %1 instead of %2; ").arg(printable(level), printable(known->level));
    // The results of the level to come are removed first.
    const QByteArray results = resultsAt(rig, levelBefore);
    for (int i = 0; i < known->items.size(); ++i) {
        ++known->compared;
        known->settled += known->items[i].size() == 1;
        if (i >= results.size() || !known->items[i].contains(results[i]))
            fault += QString("item %1 is \"%2\", not one of \"%3\"; ")
                         .arg(i + 1)
                         .arg(QString(results.mid(i, 1)), QString(known->items[i]));
    }
    if (!id.startsWith(known->id) && !id.startsWith(known->newId))
        fault += QString("ID %1 instead of %2; ").arg(QString(id), QString(known->id));
    if (!kernel.isEmpty())
        fault += "file system: " + kernel;
    known->level = known->asked = level;
    known->id = known->newId = id.trimmed();
    return fault;
}

} // namespace

int cutBoardPower(int cuts, uint seed)
{
    BoardRig rig(IctDisk::own);
    Known known;
    int wrong = 0, done = 0;
    rig.powerOn();
    for (; done < cuts && !interrupted(); ++done) {
        // Of its own, for how much is drawn until a cut is up to how fast the machine is.
        std::seed_seq seeds{seed, uint(done)};
        std::mt19937 random(seeds);
        const int ms = int(random() % longestMs), level = rig.level;
        expectAsIs(rig, &known);
        work(rig, ms, done, random, &known);
        rig.panel.powerOff();
        rig.powerOn();
        const QString fault = lost(rig, level, &known);
        wrong += !fault.isEmpty();
        const QByteArray journal = rig.run("dmesg | grep -o 'recovery complete' || echo clean");
        say(QString(" %1 cut %2 at %3 after %4 ms: boots at %5, %6 %7")
                .arg(fault.isEmpty() ? "ok  " : "FAIL")
                .arg(done + 1)
                .arg(levelName(level))
                .arg(ms)
                .arg(levelName(rig.level), QString(journal).trimmed(), fault),
            !fault.isEmpty());
    }
    rig.panel.powerOff();
    say(QString("%1 cuts (seed %2), %3 wrong; %4 results compared, %5 of them with one legal value")
            .arg(done)
            .arg(seed)
            .arg(wrong)
            .arg(known.compared)
            .arg(known.settled),
        wrong);
    return wrong || done < cuts ? 1 : 0;
}
