#include "pfvp/pfvpitems.h"

#include <QtTest>

// What of the PFVP items needs no panel: nothing on a panel asks for the ping.
class TstPfvp : public QObject {
    Q_OBJECT

private slots:
    void ping();
};

void TstPfvp::ping()
{
    const QByteArray head = "PING 192.168.123.111 (192.168.123.111): 56 data bytes\n\n";
    const QByteArray none = "1 packets transmitted, 0 packets received, 100% packet loss\n";
    const QByteArray one = "1 packets transmitted, 1 packets received, 0% packet loss\n";
    QVERIFY(isPingAnswered(head + one));
    QVERIFY(!isPingAnswered(head + none));
    QVERIFY(!isPingAnswered(none + one)); // the first line of its kind counts
    QVERIFY(isPingAnswered("a\nb\nc\nd\ne\n" + one)); // six lines are looked at
    QVERIFY(!isPingAnswered("a\nb\nc\nd\ne\nf\n" + one));
    QVERIFY(!isPingAnswered(QByteArray(70, 'x') + "\nb\nc\nd\ne\n" + one)); // the long one is two
    QVERIFY(isPingAnswered(one.trimmed()));
    QVERIFY(!isPingAnswered(one.left(43))); // cut before the figure
    QVERIFY(!isPingAnswered(""));
}

QTEST_APPLESS_MAIN(TstPfvp)
#include "tst_pfvp.moc"
