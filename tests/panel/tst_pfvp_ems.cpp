#include "panelharness.h"
#include "pfvpharness.h"

#include <QTimer>

// The EMS window with a peer that misbehaves, and its confirmations.
class TstPfvpEms : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void badPeer();
    void resetWantsTwoPresses();
    void startDisarmsBoth();

private:
    QByteArray cycle()
    {
        return ::cycle(*person_, PfvpTable::Ems, 9, "EMS Start Test", "EMS Stop Test");
    }

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
    panel_->setPlugged(Port::ttyGS0, false);
    panel_->setPlugged(Port::ttyGS0, true);
}

// Answers with far too much behind, too late, in noise without end; a USB host port that is not
// there; a USB device port that is found gone in the first cycle, opened in the second, answers in
// the third, and then not.
void TstPfvpEms::badPeer()
{
    const auto respond = [this](Port id, const QByteArray &answer, int ms) {
        PtyPort *port = panel_->port(id);
        connect(port, &PtyPort::fromPanel, port, [=](const QByteArray &request) {
            if (request.size() == 19)
                QTimer::singleShot(ms, port, [=] { port->send(answer); });
        });
    };
    respond(Port::ttyO1, "PFVPV01 COM1RS232OK" + QByteArray(50, '\n'), 100);
    respond(Port::ttyO3, "PFVPV01 COM1RS485OK", 5000);
    respond(Port::ttyGS0, "PFVPV01 USBDEVI R\r\n", 0);
    auto *noise = new QTimer; // in the thread of the ports
    connect(noise, &QTimer::timeout, panel_->port(Port::ttyO4),
            [port = panel_->port(Port::ttyO4)] { port->send(QByteArray(40, '\xA5') + '\0'); });
    noise->moveToThread(panel_->ioThread());
    QMetaObject::invokeMethod(noise, [noise] { noise->start(40); });

    panel_->setAttribute(attribute::voltage(4), "3918"); // highest and lowest that pass: 5250 mV,
    panel_->setAttribute(attribute::voltage(5), "3509"); // 3136,
    panel_->setAttribute(attribute::voltage(6), "2202"); // 2952
    for (int i = 0; i < 2; ++i)
        QCOMPARE(cycle(), QByteArray("pppppffff"));
    // A request on USB may miss its turn, and be answered in the cycle behind.
    QByteArray passed;
    for (int tries = 0; tries < 5 && !passed.endsWith('p'); ++tries) {
        passed = cycle();
        QCOMPARE(passed.left(8), QByteArray("pppppfff"));
    }
    QVERIFY2(passed.endsWith('p'), passed);
    panel_->port(Port::ttyGS0)->disconnect(panel_->port(Port::ttyGS0));
    panel_->setAttribute(attribute::voltage(4), "3544"); // one step too low: 4749 mV,
    panel_->setAttribute(attribute::voltage(5), "3878"); // and too high: 3466
    QCOMPARE(cycle(), QByteArray("ffpppffff"));
    noise->deleteLater();
}

void TstPfvpEms::resetWantsTwoPresses()
{
    QVERIFY(person_->press("EMI Start Test"));
    QVERIFY(person_->countsAfter(PfvpTable::Emi, 5, CycleMs)[1].fail > 0);
    QVERIFY(person_->press("EMI Stop Test", CycleMs));
    QVERIFY(person_->press("Reset Test", CycleMs));
    QVERIFY(person_->sees("Sure!! Reset"));
    QVERIFY(person_->counts(PfvpTable::Ems)[2].pass > 0);
    QVERIFY(person_->press("Sure!! Reset"));
    QVERIFY(person_->sees("Reset Test"));
    QCOMPARE(text(person_->counts(PfvpTable::Ems)), textOfAll(9, "0/0"));
    QCOMPARE(text(person_->counts(PfvpTable::Emi)), textOfAll(5, "0/0"));
    // Confirmed once, it asks no more until a start.
    QVERIFY(person_->press("Reset Test"));
    QVERIFY(person_->press("END Test"));
    QVERIFY(person_->sees("Sure!! END TEst"));
    QCOMPARE(person_->buttons({"Sure!! Reset"}), QStringList());
}

// And puts Reset's text right, unlike END's.
void TstPfvpEms::startDisarmsBoth()
{
    QVERIFY(person_->press("EMS Start Test"));
    QVERIFY(person_->press("EMS Stop Test", CycleMs));
    QVERIFY(person_->press("Reset Test", CycleMs));
    QVERIFY(person_->sees("Sure!! Reset"));
    QVERIFY(person_->press("Sure!! END TEst")); // only armed again
    QVERIFY(person_->press("Sure!! Reset"));
    QVERIFY(person_->sees("Reset Test"));
    QVERIFY(person_->press("Sure!! END TEst"));
    QCOMPARE(panel_->waitForExit(DeadlineMs), 0);
}

QTEST_MAIN(TstPfvpEms)
#include "tst_pfvp_ems.moc"
