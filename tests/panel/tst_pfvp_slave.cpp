#include "panelharness.h"
#include "pfvpharness.h"

// The slave window: answering a panel under test, and handing the panel back to T1.
class TstPfvpSlave : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void answers_data();
    void answers();
    void recoversFromNoise();
    void gotoT1();
    void gotoT1WithoutDisk();

private:
    static QByteArray exchange(VirtualPanel &panel, Port port, const QByteArray &request, int ms);

    VirtualPanel slave_, other_;
    std::unique_ptr<VirtualPanel> readOnly_;
};

static bool showsNotice(const QImage &screen, const QPoint &at, const char *text)
{
    return PfvpOperator::shows(screen, at, text, 18, QColor(128, 0, 0));
}

// All three boot at once.
void TstPfvpSlave::initTestCase()
{
    PanelOptions options;
    options.ictDisk = IctDisk::readOnly;
    readOnly_ = std::make_unique<VirtualPanel>(options);
    for (VirtualPanel *panel : {&slave_, &other_, readOnly_.get()}) {
        panel->writeFile("/usr/local/ict/HMI_TEST_LEVEL.txt", "HMI\n");
        for (const char *level : {"T1", "BI", "T2"})
            panel->writeFile(QString("/usr/local/ict/HMI_%1_TEST_Flag.txt").arg(level), "old");
    }
    slave_.setPlugged(Port::ttyUSB0, true);
    for (VirtualPanel *panel : {&slave_, &other_, readOnly_.get()})
        panel->powerOn({"PFVP_SLAVE"});
    // Nothing is answered before the operator says so.
    PfvpOperator person(slave_);
    QVERIFY2(person.sees("GotoT1"), slave_.errorOutput());
    PcPort pc(slave_);
    pc.write("PFVPV01 COM1RS232\r\n");
    QCOMPARE(pc.read(19, 500), QByteArray());
    QVERIFY(person.press("StartSlaveMode"));
    QCOMPARE(pc.read(19, 5000), QByteArray("PFVPV01 COM1RS232OK"));
    bool noticed = false;
    slave_.screen().waitFor(
        [](const QImage &image) {
            return showsNotice(image, {320, 240}, "SlaveMode Start.....");
        },
        5000, &noticed);
    QVERIFY(noticed);
    QCOMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
}

QByteArray TstPfvpSlave::exchange(VirtualPanel &panel, Port port, const QByteArray &request, int ms)
{
    PcPort pc(panel, port);
    waitFor([] { return false; }, 50); // until the bench has noticed that somebody listens
    pc.write(request);
    return pc.read(30, ms);
}

void TstPfvpSlave::answers_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("answer");
    const auto row = [](const char *name, Port port, const char *request, const char *answer) {
        QTest::newRow(name) << int(port) << QByteArray(request) << QByteArray(answer);
    };
    row("COM1 RS-232", Port::ttyO1, "PFVPV01 COM1RS232\r\n", "PFVPV01 COM1RS232OK");
    row("COM1 RS-485", Port::ttyO3, "PFVPV01 COM1RS485\r\n", "PFVPV01 COM1RS485OK");
    row("COM2 RS-485", Port::ttyO4, "PFVPV01 COM2RS485\r\n", "PFVPV01 COM2RS485OK");
    row("peer's USB host", Port::ttyGS0, "PFVPV01 USBHOST S\r\n", "PFVPV01 USBHOST R\r\n");
    row("peer's USB device", Port::ttyUSB0, "PFVPV01 USBDEVI S\r\n", "PFVPV01 USBDEVI R\r\n");
    row("another port's request", Port::ttyO3, "PFVPV01 COM2RS485\r\n", "");
    row("the answer itself", Port::ttyO1, "PFVPV01 COM1RS232OK", "");
    row("a port that is not there", Port::ttyO4, "PFVPV01 COM3RS485\r\n", "");
    row("cut short", Port::ttyO1, "PFVPV01 COM1RS232\r", "");
}

void TstPfvpSlave::answers()
{
    QFETCH(int, port);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, answer);
    QCOMPARE(exchange(slave_, Port(port), request, 1800), answer);
}

// A burst is eaten up a request's length a tick; what is left over in the end is dropped.
void TstPfvpSlave::recoversFromNoise()
{
    const QByteArray burst = QByteArray(40, '\xFF') + '\0' + "PFVPV01 COM1";
    QCOMPARE(exchange(slave_, Port::ttyO1, burst, 1500), QByteArray());
    QCOMPARE(exchange(slave_, Port::ttyUSB0, burst, 1500), QByteArray());
    QCOMPARE(exchange(slave_, Port::ttyO1, "PFVPV01 COM1RS232\r\n", 1800),
             QByteArray("PFVPV01 COM1RS232OK"));
    QCOMPARE(exchange(slave_, Port::ttyUSB0, "PFVPV01 USBDEVI S\r\n", 1800),
             QByteArray("PFVPV01 USBDEVI R\r\n"));
}

void TstPfvpSlave::gotoT1()
{
    PfvpOperator person(other_);
    QVERIFY(person.press("GotoT1"));
    bool noticed = false;
    const auto notice = [](const QImage &screen) {
        return showsNotice(screen, {250, 240}, "GotoT1 To ReTesting (Please Re-Boot)");
    };
    other_.screen().waitFor(notice, 5000, &noticed);
    QVERIFY(noticed);
    QCOMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
    const QString level = "/usr/local/ict/HMI_TEST_LEVEL.txt";
    QCOMPARE(other_.readFile(level), QByteArray("T1 \n"));
    QStringList left;
    for (const char *name : {"T1", "BI", "T2"}) {
        if (!other_.readFile(QString("/usr/local/ict/HMI_%1_TEST_Flag.txt").arg(name)).isEmpty())
            left << name;
    }
    QCOMPARE(left, QStringList("BI"));
    QCOMPARE(other_.readFile("/usr/local/ict/HMI_Factory_Resume.txt"),
             QByteArray("QZ! ===== HMI-Warden Goto T1 Pass!! =====\n"));

    // Again at the same place: nothing is written a second time.
    other_.writeFile(level, "untouched");
    other_.tap({665, 420});
    QTest::qWait(500);
    QCOMPARE(other_.readFile(level), QByteArray("untouched"));
}

void TstPfvpSlave::gotoT1WithoutDisk()
{
    PfvpOperator person(*readOnly_);
    QVERIFY(person.press("GotoT1"));
    QTRY_COMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
    QVERIFY(!showsNotice(readOnly_->screen().grab(), {250, 240},
                         "GotoT1 To ReTesting (Please Re-Boot)"));
    QVERIFY(!readOnly_->readFile("/usr/local/ict/HMI_T2_TEST_Flag.txt").isEmpty());
}

QTEST_MAIN(TstPfvpSlave)
#include "tst_pfvp_slave.moc"
