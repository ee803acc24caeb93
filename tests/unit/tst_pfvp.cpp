#include "pfvp/pfvpitems.h"

#include <QtTest>

// What of the PFVP items needs no panel: nothing on a panel asks for the ping.
class TstPfvp : public QObject {
    Q_OBJECT

private slots:
    void ping_data();
    void ping();
};

void TstPfvp::ping_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<bool>("answered");
    const QByteArray head = "PING 192.168.123.111 (192.168.123.111): 56 data bytes\n\n";
    const QByteArray none = "1 packets transmitted, 0 packets received, 100% packet loss\n";
    const QByteArray one = "1 packets transmitted, 1 packets received, 0% packet loss\n";
    QTest::newRow("answered") << head + one << true;
    QTest::newRow("lost") << head + none << false;
    QTest::newRow("the first line of its kind counts") << none + one << false;
    QTest::newRow("sixth line") << "a\nb\nc\nd\ne\n" + one << true;
    QTest::newRow("seventh line") << "a\nb\nc\nd\ne\nf\n" + one << false;
    QTest::newRow("a long line counts twice")
        << QByteArray(70, 'x') + "\nb\nc\nd\ne\n" + one << false;
    QTest::newRow("without line end") << one.trimmed() << true;
    QTest::newRow("cut before the figure") << one.left(43) << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void TstPfvp::ping()
{
    QFETCH(QByteArray, output);
    QTEST(isPingAnswered(output), "answered");
}

QTEST_APPLESS_MAIN(TstPfvp)
#include "tst_pfvp.moc"
