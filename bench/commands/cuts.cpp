#include "commands/commands.h"
#include "commands/interrupt.h"
#include "effects/powercut.h"
#include "effects/session.h"

#include <QCommandLineParser>
#include <QCryptographicHash>

namespace {

// One operation: what is prepared, what is done (a section of `bench effects`), and the text that
// tells the station it is done; none where the panel is not asked.
struct Row {
    const char *name;
    QStringList before;
    EffectSection section;
    const char *reply = "";
    const char *target = nullptr; // of the level file, where it changes
};

// Something is to happen in each: a request that a busy machine tore apart is repeated.
EffectSection section(const QString &title, const QStringList &conditions = {})
{
    return {title, conditions, {"anything"}, 0};
}

// A panel at `level` that has booted, every item of it and of the level it goes to passed: old
// results that no way may bring back.
QStringList at(const QString &level, const QString &next = {})
{
    QStringList steps{"do new", "do level " + level, "do passed " + level};
    if (!next.isEmpty() && next != level) {
        steps << "do passed " + next;
    }
    return steps << "boot";
}

QVector<Row> allRows()
{
    const QString calibrated = "12800 3 -5 -7 7680 11 65536\\x00";
    const QString saved = "do file /usr/local/ict/pointercal " + calibrated;
    QVector<Row> rows{
        {"first boot", {"do new"}, section("boot"), "", "ICT\n"},
        {"first boot at T1", {"do new", "do level T1"}, section("boot")},
        {"first boot at BI", {"do new", "do level BI"}, section("boot")},
        {"first boot at T2", {"do new", "do level T2"}, section("boot")},
        {"boot with a flag file cut short",
         {"do new", "do level ICT", "do passed ICT",
          "do file /usr/local/ict/HMI_ICT_TEST_Flag.txt 01.Model Test: 1"},
         section("boot")},
        {"item passed at ICT", {"do new", "boot"}, section("8000"), "8000"},
        {"item failed at T1", at("T1"), section("8102", {"fault com1-485"}), "81F2"},
        {"item passed at BI", {"do new", "do level BI", "boot"}, section("9504"), "9504"},
        {"item passed at T2", {"do new", "do level T2", "boot"}, section("8500"), "8500"},
        {"end check of ICT", at("ICT", "T1"), section("0400"), "0400", "T1 \n"},
        {"end check of T1", at("T1", "BI"), section("0100"), "0100", "BI \n"},
        {"end check of BI", at("BI", "T2"), section("0200"), "0200", "T2 \n"},
        {"end check of T2", at("T2"), section("0300"), "0300", "HMI\n"},
        {"end check that fails", {"do new", "do level T1", "boot"}, section("0100"), "01F0"},
        {"extended end check",
         at("T1") << "8D 0"
                  << "boot"
                  << "8E 0",
         section("0101"), "0101", "HMI\n"},
        {"extended end check that is refused", at("T1"), section("0101"), "01FF"},
        {"forced change to ICT", at("T2", "ICT"), section("KLV- ICT"), "ICT_PASS", "ICT\n"},
        {"forced change to T1", at("ICT", "T1"), section("KLV- T1"), "T1_PASS", "T1 \n"},
        {"forced change to BI", at("T1", "BI"), section("KLV- BI"), "BI_PASS", "BI \n"},
        {"forced change to T2", at("BI", "T2"), section("KLV- T2"), "T2_PASS", "T2 \n"},
        {"forced change to HMI", at("T1"), section("KLV- HMI"), "HMI_PASS", "HMI\n"},
        {"forced change to the same level", at("T1"), section("KLV- T1"), "T1_PASS", "T1 \n"},
        {"forced change to nowhere", at("T1"), section("\"KLV-100-99\\r\\n\""), "", ""},
        {"back to T1 by the button",
         {"do new", "do level HMI", "do passed T1", "do passed T2", "boot agent PFVP_SLAVE"},
         section("do tap 665 420", {"until Goto T1 Pass"}),
         "",
         "T1 \n"},
        {"calibration, the first", at("T1"), section("9000", {"during calibrate"}), "9000"},
        {"calibration, another", at("T1") << saved, section("9004", {"during calibrate3"}), "9004"},
        {"calibration that fails", at("T1") << saved,
         section("9000", {"fault touch:bend=40", "during calibrate"}), "90F0"},
        {"touch check", at("T2"), section("9001", {"during check"}), "9001"},
        {"machine ID", at("T1"), section("0601 KLV1234X5W00001205"), "0601"},
        {"machine ID, a shorter one",
         at("T1") << "do file /usr/local/ict/HMI_MACHINE_ID.txt KLV12345T0000001299999",
         section("0601 KLV12345T00000012"), "0601"},
        {"semi-finished machine ID", at("ICT"), section("0602 KLV12345T0000001"), "0602"},
        {"station number", at("T1"), section("8A00"), "8A00"},
        {"clock", at("T1"), section("8D 0"), "8D00"},
    };
    return rows;
}

// A state that a cut can leave, and when.
struct State {
    Cut cut;
    PanelState files;
    QString after; // the call
};

QByteArray fingerprint(const PanelState &state)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    for (auto file = state.begin(); file != state.end(); ++file) {
        for (const QByteArray &part : {file.key(), file.value()}) {
            hash.addData(QByteArray::number(part.size()) + ' ' + part);
        }
    }
    return hash.result();
}

// Every state of one operation, in the order of its calls, those alike in all that the verdict asks
// for once.
class Enumeration {
public:
    Enumeration(const Row &row, const PanelState &before)
        : row_(row)
        , model_(before)
    {
        cut_.before = cut_.now = before;
        const QByteArray level = before.value("/usr/local/ict/HMI_TEST_LEVEL.txt", "ICT\n");
        cut_.target = row.target ? QByteArray(row.target) : level;
        take("the start");
    }
    void add(const Operation &operation)
    {
        if (operation.kind == Operation::Write && operation.path.startsWith("/dev/tty")
            && *row_.reply) {
            cut_.confirmed |= operation.bytes.contains(row_.reply);
        } else if (!model_.add(operation)) {
            return;
        }
        ++calls;
        const QByteArray level = bootLevel(cut_.before);
        const QSet<int> was = passedItems(cut_.now, level), is = passedItems(model_.now(), level);
        if (model_.now().keys() == cut_.now.keys()) {
            cut_.items += (was - is) + (is - was);
        }
        cut_.now = model_.now();
        take(operation.name + ' ' + operation.path);
    }
    void rest()
    {
        cut_.atRest = true;
        take("the end");
    }

    QVector<State> states;
    int calls = 0;

private:
    void take(const QString &after)
    {
        for (const PanelState &files : model_.states()) {
            const QByteArray key = fingerprint(files) + fingerprint(cut_.now)
                + QByteArray::number(cut_.confirmed + 2 * cut_.atRest);
            if (!seen_.contains(key)) {
                seen_ << key;
                states.append({cut_, files, after});
            }
        }
    }

    const Row &row_;
    CutModel model_;
    Cut cut_;
    QSet<QByteArray> seen_;
};

class Cuts {
public:
    explicit Cuts(int panels)
    {
        for (int i = 0; i < panels; ++i) {
            panels_.push_back(std::make_unique<VirtualPanel>());
        }
    }
    // The number of states that are not legal; prints them and the row.
    int run(const Row &row)
    {
        const Enumeration found = trace(row);
        bootAll(row, found.states);
        int illegal = 0;
        QSet<QByteArray> different;
        for (const State &state : found.states) {
            const QByteArray key = fingerprint(state.files);
            different << key;
            QString wrong = verdict(state.cut, revived_[key]);
            if (state.cut.atRest && *row.reply && !state.cut.confirmed) {
                wrong = QString("\"%1\" was never answered").arg(row.reply);
            }
            if (wrong.isEmpty()) {
                continue;
            }
            ++illegal;
            printf("ILLEGAL  %s, cut after %s%s: %s\n", row.name, qPrintable(state.after),
                   state.cut.confirmed ? " (answered)" : "", qPrintable(wrong));
        }
        printf("| %-36s | %5d | %6d | %7d |\n", row.name, found.calls, different.size(), illegal);
        fflush(stdout);
        states += different.size();
        return illegal;
    }

    int states = 0;

private:
    Enumeration trace(const Row &row)
    {
        EffectSession session;
        for (const QString &step : row.before) {
            session.run(step.startsWith("boot ") ? section("boot", step.mid(5).split(", "))
                                                 : section(step));
        }
        Enumeration found(row, stateOf(session.panel()));
        session.watch = [&](const Operation &operation) { found.add(operation); };
        session.run(row.section);
        found.rest();
        return found;
    }
    // Those that have not been booted before; a boot depends on nothing else.
    void bootAll(const Row &row, const QVector<State> &states)
    {
        QVector<const State *> left;
        QSet<QByteArray> keys;
        for (const State &state : states) {
            const QByteArray key = fingerprint(state.files);
            if (!revived_.contains(key) && !keys.contains(key)) {
                keys << key;
                left << &state;
            }
        }
        QVector<VirtualPanel *> panels;
        for (const auto &panel : panels_) {
            panels << panel.get();
        }
        int next = 0;
        revive(panels, [&](VirtualPanel &panel) -> Taker {
            fprintf(stderr, "\r%s: state %d of %d ", row.name, next, left.size());
            if (next == left.size()) {
                fprintf(stderr, "\r%70s\r", "");
                return nullptr;
            }
            const State *state = left[next++];
            putState(panel, state->files);
            return [this, state](const Revival &revival) {
                revived_[fingerprint(state->files)] = revival;
            };
        });
    }

    std::vector<std::unique_ptr<VirtualPanel>> panels_;
    QHash<QByteArray, Revival> revived_; // by the files before the boot
};

} // namespace

int runCuts(const QStringList &args)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Cuts the power after each call with which the agent and its programs change the panel's\n"
        "files, during first boots, items, end checks and the other OPERATIONs (default: all).\n"
        "Puts every state that this could leave, what was not synced being there or not, on a\n"
        "virtual panel, boots the agent on it and judges. Prints how many calls and different\n"
        "states each operation has, and every state that is not legal. Exits 0 if all are.\n"
        "Example: bench cuts \"end check of T1\" clock");
    parser.addHelpOption();
    parser.addOptions({{"list", "Only list the operations."},
                       {"panels", "Panels that boot side by side (default 2).", "count", "2"}});
    parser.addPositionalArgument("OPERATION", "What to cut.", "[OPERATION...]");
    parser.process(args);
    quitOnInterrupt();
    QStringList wanted = parser.positionalArguments();
    const bool all = wanted.isEmpty();
    Cuts cuts(qBound(1, parser.value("panels").toInt(), 32));
    int illegal = 0;
    if (!parser.isSet("list")) {
        printf("| Operation                            | Calls | States | Illegal "
               "|\n|---|---|---|---|\n");
    }
    for (const Row &row : allRows()) {
        if (parser.isSet("list")) {
            puts(row.name);
        } else if (all || wanted.removeAll(row.name)) {
            illegal += cuts.run(row);
        }
    }
    if (!wanted.isEmpty()) {
        throw BenchError("no operation \"" + wanted[0] + "\"; --list names them");
    }
    if (!parser.isSet("list")) {
        printf("%d states, %d illegal\n", cuts.states, illegal);
    }
    return illegal ? 1 : 0;
}
