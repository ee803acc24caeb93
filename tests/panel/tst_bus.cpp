#include "panel/burninbus.h"
#include "station/codec.h"
#include "station/link.h"
#include "station/protocol.h"

#include <QtTest>

// Burn-in as it stands in the hall: several real agents on one RS-485 bus.
class TestBus : public QObject {
    Q_OBJECT
private slots:
    void eachAnswersToItsOwnNumber();
};

void TestBus::eachAnswersToItsOwnNumber()
{
    const auto panels = burnInBus(3);
    Link link;
    link.open(panels[0]->linkPath(Port::ttyO3), Bi);
    const auto ask = [&](int number, const char *code) {
        Link::Request request;
        request.bytes = shortRequest(number, code);
        request.timeoutMs = 3000;
        request.silence = number > 3;
        return decode(link.exchange(request).bytes);
    };
    for (int round = 0; round < 2; ++round)
        for (int number : {2, 1, 3}) {
            const Reply reply = ask(number, "8500");
            QCOMPARE(reply.station, number);
            QCOMPARE(reply.payload, QByteArray("8500"));
            QCOMPARE(reply.noise, QByteArray());
        }
    QCOMPARE(int(ask(4, "8500").kind), int(Reply::None));
    // An end check silences its own panel only, and changes no other's files.
    QCOMPARE(ask(3, "0200").payload, QByteArray("02F0"));
    QCOMPARE(ask(1, "8500").station, 1);
    QCOMPARE(ask(2, "8500").station, 2);
    QCOMPARE(int(ask(3, "8500").kind), int(Reply::None));
    const QString flags = "/usr/local/ict/HMI_BI_TEST_Flag.txt";
    QVERIFY(panels[2]->readFile(flags).contains("6. BI Test END Check: F"));
    QVERIFY(panels[0]->readFile(flags).contains("6. BI Test END Check: 0"));
}

QTEST_GUILESS_MAIN(TestBus)
#include "tst_bus.moc"
