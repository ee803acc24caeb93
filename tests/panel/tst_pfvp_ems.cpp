#include "pfvpharness.h"

#include <QTimer>

// The EMS window with a peer that misbehaves, and its confirmations.
class TstPfvpEms : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void badPeer();
    void resetWantsTwoPresses();
    void startDisarmsEnd();

private:
    std::unique_ptr<VirtualPanel> panel_;
    std::unique_ptr<PfvpOperator> person_;
};

void TstPfvpEms::initTestCase()
{
    panel_ = std::make_unique<VirtualPanel>();
    person_ = std::make_unique<PfvpOperator>(*panel_);
    panel_->powerOn({"PFVP_EMS"});
    QVERIFY2(person_->sees("EMS Start Test"), panel_->errorOutput());
    QVERIFY(panel_->output().contains("open UART") == false);
}

// Answers with a line end too many, too late, in noise without end; a USB host port that is not
// there; a USB device port that answers as it should, and then not.
void TstPfvpEms::badPeer()
{
    const auto respond = [this](Port id, const QByteArray &answer, int ms) {
        PtyPort *port = panel_->port(id);
        connect(port, &PtyPort::fromPanel, port, [=](const QByteArray &request) {
            if (request.size() == 19)
                QTimer::singleShot(ms, port, [=] { port->send(answer); });
        });
    };
    respond(Port::ttyO1, "PFVPV01 COM1RS232OK\r\n", 100);
    respond(Port::ttyO3, "PFVPV01 COM1RS485OK", 5000);
    respond(Port::ttyGS0, "PFVPV01 USBDEVI R\r\n", 0);
    auto *noise = new QTimer; // in the thread of the ports
    connect(noise, &QTimer::timeout, panel_->port(Port::ttyO4),
            [port = panel_->port(Port::ttyO4)] { port->send(QByteArray(40, '\xA5') + '\0'); });
    noise->moveToThread(panel_->ioThread());
    QMetaObject::invokeMethod(noise, [noise] { noise->start(40); });

    QVERIFY(person_->press("EMS Start Test"));
    QCOMPARE(text(person_->countsAfter(PfvpTable::Ems, 9, CycleMs)),
             QByteArray("1/0 1/0 1/0 1/0 1/0 0/1 0/1 0/1 1/0"));
    panel_->port(Port::ttyGS0)->disconnect(panel_->port(Port::ttyGS0));
    QCOMPARE(text(person_->countsAfter(PfvpTable::Ems, 18, CycleMs)),
             QByteArray("2/0 2/0 2/0 2/0 2/0 0/2 0/2 0/2 1/1"));
    noise->deleteLater();
    QVERIFY(person_->press("EMS Stop Test", CycleMs));
}

void TstPfvpEms::resetWantsTwoPresses()
{
    QVERIFY(person_->press("Reset Test", CycleMs));
    QVERIFY(person_->sees("Sure!! Reset"));
    QCOMPARE(person_->counts(PfvpTable::Ems)[0].pass, 2);
    QVERIFY(person_->press("Sure!! Reset"));
    QVERIFY(person_->sees("Reset Test"));
    QCOMPARE(text(person_->counts(PfvpTable::Ems)), textOfAll(9, "0/0"));
    // Confirmed once, it asks no more until a start.
    QVERIFY(person_->press("Reset Test"));
    QVERIFY(!person_->sees("Sure!! Reset", 1000));
    QVERIFY(person_->press("EMI Start Test"));
    QVERIFY(person_->press("EMI Stop Test", CycleMs));
    QVERIFY(person_->press("Reset Test", CycleMs));
    QVERIFY(person_->sees("Sure!! Reset"));
}

void TstPfvpEms::startDisarmsEnd()
{
    QVERIFY(person_->press("END Test"));
    QVERIFY(person_->sees("Sure!! END TEst"));
    QVERIFY(person_->press("EMS Start Test"));
    QVERIFY(person_->sees("EMS Stop Test", CycleMs));
    QVERIFY(person_->press("EMS Stop Test", CycleMs));
    QVERIFY(person_->sees("Reset Test", CycleMs)); // the start put it right, unlike END's text
    QVERIFY(person_->press("Sure!! END TEst"));
    QCOMPARE(panel_->waitForExit(1000), -1); // only armed again
    QVERIFY(person_->press("Sure!! END TEst"));
    QCOMPARE(panel_->waitForExit(10000), 0);
}

QTEST_MAIN(TstPfvpEms)
#include "tst_pfvp_ems.moc"
