#include "pfvp/pfvpexchange.h"
#include "pfvp/pfvpitems.h"
#include "state/linkstate.h"

#include <QtTest>

#include <fcntl.h>
#include <thread>
#include <unistd.h>

// What of the PFVP items needs no panel: nothing on a panel asks for the ping, and no pseudo
// terminal holds as much as a serial port's driver.
class TstPfvp : public QObject {
    Q_OBJECT

private slots:
    void ping();
    void staleInput();
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

// The answer is found behind all that came before the question.
void TstPfvp::staleInput()
{
    int in[2], out[2];
    QVERIFY(pipe(in) == 0 && pipe(out) == 0);
    fcntl(in[0], F_SETFL, O_NONBLOCK);
    Com1OpenRS232_R_fd2 = in[0];
    Com1OpenRS232_W_fd2 = out[1];
    const QByteArray stale(60000, 'x');
    QCOMPARE(write(in[1], stale.constData(), size_t(stale.size())), ssize_t(stale.size()));
    std::thread peer([&] {
        char request[19];
        if (read(out[0], request, sizeof request) == sizeof request)
            (void)!write(in[1], "PFVPV01 COM1RS232OK", 19);
    });
    const bool answered = askCom1Rs232();
    peer.join();
    QVERIFY(answered);
    for (const int fd : {in[0], in[1], out[0], out[1]})
        close(fd);
}

QTEST_APPLESS_MAIN(TstPfvp)
#include "tst_pfvp.moc"
