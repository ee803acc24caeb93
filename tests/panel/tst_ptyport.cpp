#include "panel/panelharness.h"

#include <csignal>
#include <unistd.h>

// Whether the panel's serial ports behave as UARTs do, pseudo terminals though they are.
class TstPtyPort : public QObject {
    Q_OBJECT

private slots:
    void wireRunsAtLineSpeed();
    void unreadPortLosesBytes();
    void closingEmptiesThePort();
};

void TstPtyPort::wireRunsAtLineSpeed()
{
    VirtualPanel panel(running("/bin/sh"));
    panel.powerOn({"-c",
                   "stty -F /dev/ttyO1 9600 raw; stty -F /dev/ttyO3 19200; echo x; exec cat "
                   "/dev/ttyO1 >/dev/ttyO1"});
    QTRY_COMPARE(panel.output(), QByteArray("x\n"));
    QCOMPARE(panel.port(Port::ttyO3)->lineSpeed(), 19200);
    PcPort pc(panel);
    QTRY_VERIFY(panel.port(Port::ttyO1)->isOpenOnPanel());
    QCOMPARE(pc.ask("?", 1), QByteArray("?"));

    // 96 bytes of 11 bits at 9600 baud are 110 ms on the wire, whoever blocks meanwhile.
    QElapsedTimer clock;
    clock.start();
    pc.write(QByteArray(96, 'x'));
    QCOMPARE(pc.read(96).size(), 96);
    QVERIFY2(clock.elapsed() >= 108 && clock.elapsed() < DeadlineMs,
             QByteArray::number(clock.elapsed()));
}

void TstPtyPort::unreadPortLosesBytes()
{
    VirtualPanel panel(running("/bin/sh"));
    // A child of the bench, on its way to another program, listens to nothing.
    const pid_t child = fork();
    if (child == 0)
        pause();
    const auto end = qScopeGuard([child] { kill(child, SIGKILL); });
    auto pc = std::make_unique<PcPort>(panel);
    pc->write("off");
    QTRY_VERIFY(panel.port(Port::ttyO1)->isDelivered());
    panel.powerOn(
        {"-c",
         "while [ ! -e /tmp/go ]; do sleep .05; done; exec 3<>/dev/ttyO1; cat <&3 & until "
         "[ -e /tmp/alone ]; do sleep .05; done; kill $!; wait; echo nobody >&3; "
         "cat <&3"});
    pc->write("closed");
    QTRY_VERIFY(panel.port(Port::ttyO1)->isDelivered());
    panel.writeFile("/tmp/go", "");
    QTRY_VERIFY(panel.port(Port::ttyO1)->isOpenOnPanel());
    pc->write("open");
    QTRY_COMPARE(panel.output(), QByteArray("open"));

    // The other way, what is said while no program listens is not kept for the next one.
    pc.reset();
    QSignalSpy said(panel.port(Port::ttyO1), &PtyPort::fromPanel);
    panel.writeFile("/tmp/alone", "");
    QTRY_VERIFY(!said.isEmpty());
    pc = std::make_unique<PcPort>(panel);
    pc->write("again");
    QTRY_COMPARE(panel.output(), QByteArray("openagain"));
    QCOMPARE(pc->read(1, 100), QByteArray());
}

void TstPtyPort::closingEmptiesThePort()
{
    VirtualPanel panel(running("/usr/bin/perl")); // a shell would duplicate descriptors
    PcPort pc(panel);
    // Two descriptors first: closing one of them loses nothing.
    panel.powerOn({"-e",
                   "sub port { open(my $port, '<', '/dev/ttyO1') or die; return $port; }"
                   "sub pause { select(undef, undef, undef, .05); }"
                   "$one = port; $two = port; pause until -e '/tmp/go';"
                   "close $two; pause; sysread $one, $byte, 1; close $one; $one = port; pause;"
                   "syswrite STDOUT, \"$byte\\n\"; pause until -e '/tmp/arrived';"
                   "sysread $one, $rest, 3; print $rest"});
    QTRY_VERIFY(panel.port(Port::ttyO1)->isOpenOnPanel());
    QSignalSpy arrived(panel.port(Port::ttyO1), &PtyPort::intoPanel);
    pc.write("unread");
    QTRY_VERIFY(!arrived.isEmpty());
    panel.writeFile("/tmp/go", "");
    QTRY_VERIFY(panel.output().contains('\n'));
    arrived.clear();
    pc.write("new");
    QTRY_VERIFY(!arrived.isEmpty());
    panel.writeFile("/tmp/arrived", "");
    panel.waitForExit(DeadlineMs);
    QCOMPARE(panel.output(), QByteArray("u\nnew"));
}

QTEST_GUILESS_MAIN(TstPtyPort)
#include "tst_ptyport.moc"
