#include "pfvpharness.h"

// The EMS and EMI cycles against a second panel.
class TstPfvpPair : public QObject {
    Q_OBJECT

private slots:
    void cycles();
};

// Cycles until all EMI items but the one without a test have passed since `before`.
static bool allPass(PfvpOperator &person, const PfvpCounts &before, PfvpCounts *emi)
{
    const auto passed = [&](int item) { return emi->at(item).pass > before[item].pass; };
    for (int more = 0; more < 8; ++more) {
        const int done = emi->at(0).pass + emi->at(0).fail;
        *emi = person.countsAfter(PfvpTable::Emi, 5 * (done + 1), CycleMs);
        if (passed(0) && passed(2) && passed(3) && passed(4))
            return emi->at(1).pass == 0;
    }
    return false;
}

// One run, for each part of it waits for the panel's 10 s timer.
void TstPfvpPair::cycles()
{
    PfvpStand stand;
    stand.setFault("cut:com2-rs485");
    stand.start(PfvpTable::Ems);
    PfvpOperator &person = stand.operatorOfPanel;
    const QStringList all{"EMS Start Test", "EMI Start Test", "Reset Test",
                          "END Test",       "EMS Stop Test",  "EMI Stop Test"};
    QCOMPARE(person.buttons(all), all.mid(0, 4));
    QCOMPARE(text(person.counts(PfvpTable::Ems)), textOfAll(9, "0/0"));
    QCOMPARE(text(person.counts(PfvpTable::Emi)), textOfAll(5, "0/0"));

    const QColor darkRed(128, 0, 0);
    const auto texts = tableTexts(10, 150, selfTestItems.mid(0, 9)) + tableTexts(410, 560, emiItems)
        + QVector<ScreenText>{{{10, 40}, "==== PFVP EMS Test Case ====", 18, darkRed},
                              {{410, 40}, "==== PFVP EMI Test Case ====", 18, darkRed}};
    QCOMPARE(missingOn(stand.panel.screen().grab(), texts), QStringList());

    QVERIFY(person.press("EMS Start Test"));
    QVERIFY(person.sees("EMS Stop Test"));
    QCOMPARE(person.buttons(all), QStringList("EMS Stop Test"));
    QCOMPARE(text(person.counts(PfvpTable::Emi)), textOfAll(5, "-1/-1")); // not drawn
    PfvpCounts ems = person.countsAfter(PfvpTable::Ems, 9, CycleMs);
    // A request on USB may just miss the peer's turn of polls; its answer is read by the next one.
    QCOMPARE(text(ems.mid(0, 7)), QByteArray("1/0 1/0 1/0 1/0 1/0 1/0 0/1"));
    QVERIFY(person.press("EMS Stop Test", CycleMs));
    QVERIFY(person.sees("EMS Start Test"));
    QCOMPARE(person.buttons(all), all.mid(0, 4));

    // The cut wire is of no concern here, and the item without a test fails all the same.
    QVERIFY(person.press("EMI Start Test"));
    QVERIFY(person.sees("EMI Stop Test"));
    QCOMPARE(person.buttons(all), QStringList("EMI Stop Test"));
    QCOMPARE(text(person.counts(PfvpTable::Ems)), textOfAll(9, "-1/-1"));
    PfvpCounts emi = person.counts(PfvpTable::Emi);
    QVERIFY2(allPass(person, PfvpCounts(5, PfvpCount{0, 0}), &emi), text(emi));

    // From the next whole cycle on all fail, for good.
    stand.peer.powerOff();
    const int done = emi[0].pass + emi[0].fail;
    const PfvpCounts off = person.countsAfter(PfvpTable::Emi, 5 * (done + 1), CycleMs);
    emi = person.countsAfter(PfvpTable::Emi, 5 * (done + 2), CycleMs);
    for (int item = 0; item < 5; ++item)
        QCOMPARE(emi[item].pass, off[item].pass);
    // Found again: the serial ports as soon as it answers, the USB ports a cycle after they are
    // opened anew.
    stand.startPeer();
    QVERIFY2(allPass(person, off, &emi), text(emi));
}

QTEST_MAIN(TstPfvpPair)
#include "tst_pfvp_pair.moc"
