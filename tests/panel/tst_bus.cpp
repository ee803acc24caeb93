#include "panel/burninbus.h"
#include "panel/panelharness.h"

// Burn-in as it stands in the hall: several real agents on one RS-485 bus.
class TestBus : public QObject {
    Q_OBJECT
private slots:
    void eachAnswersToItsOwnNumber();
};

void TestBus::eachAnswersToItsOwnNumber()
{
    const auto panels = burnInBus(3);
    // Each has looked at the line, which it empties once open, and found it quiet, so often.
    const auto settled = [&](int looks) {
        return std::all_of(panels.begin(), panels.end(), [looks](const auto &panel) {
            return settle(*panel, Port::ttyO3, looks);
        });
    };
    QVERIFY(settled(3));
    PcPort bus(*panels[0], Port::ttyO3);
    const auto isSilent = [&](const char *number) {
        bus.write(requestFrame("8500", number));
        return settled(14) && bus.read(1, 100).isEmpty();
    };
    for (int round = 0; round < 2; ++round)
        for (const char *number : {"02", "01", "03"})
            QCOMPARE(bus.ask(requestFrame("8500", number)), requestFrame("8500", number));
    QVERIFY(isSilent("04"));
    // An end check silences its own panel only, and changes no other's files.
    QCOMPARE(bus.ask(requestFrame("0200", "03")), requestFrame("02F0", "03"));
    for (const char *number : {"01", "02"})
        QCOMPARE(bus.ask(requestFrame("8500", number)), requestFrame("8500", number));
    QVERIFY(isSilent("03"));
    const QString flags = "/usr/local/ict/HMI_BI_TEST_Flag.txt";
    QVERIFY(panels[2]->readFile(flags).contains("6. BI Test END Check: F"));
    QVERIFY(panels[0]->readFile(flags).contains("6. BI Test END Check: 0"));
}

QTEST_GUILESS_MAIN(TestBus)
#include "tst_bus.moc"
