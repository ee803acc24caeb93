#include "panelharness.h"
#include "pfvpharness.h"

// The slave window: answering a panel under test, and handing the panel back to T1.
class TstPfvpSlave : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void answers();
    void recoversFromNoise();
    void gotoT1();
    void gotoT1WithoutDisk();

private:
    static QByteArray exchange(VirtualPanel &panel, Port port, const QByteArray &request);

    VirtualPanel slave_, other_;
    std::unique_ptr<VirtualPanel> readOnly_;
};

static bool notices(VirtualPanel &panel, const QPoint &at, const char *text, int ms = DeadlineMs)
{
    const QColor darkRed(128, 0, 0);
    return waitFor(
        [&] { return PfvpOperator::shows(panel.screen().grab(), at, text, 18, darkRed); }, ms);
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
    QCOMPARE(pc.read(19), QByteArray("PFVPV01 COM1RS232OK"));
    QVERIFY(notices(slave_, {320, 240}, "SlaveMode Start....."));
    QCOMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
}

// What `request` brings: all that comes until the port's own request, which is sent when the slave
// has polled its ports twice more, is answered.
QByteArray TstPfvpSlave::exchange(VirtualPanel &panel, Port port, const QByteArray &request)
{
    static const QMap<Port, QByteArray> own = {{Port::ttyO1, "COM1RS232\r\n"},
                                               {Port::ttyO3, "COM1RS485\r\n"},
                                               {Port::ttyO4, "COM2RS485\r\n"},
                                               {Port::ttyGS0, "USBHOST S\r\n"},
                                               {Port::ttyUSB0, "USBDEVI S\r\n"}};
    PcPort pc(panel, port);
    pc.write(request);
    if (!settle(panel, port, 25))
        return "the slave does not poll";
    QByteArray bytes = pc.read(1000, 1); // which may end as the answer awaited does
    pc.write("PFVPV01 " + own[port]);
    bytes += pc.read(1);
    QByteArray answer = own[port];
    answer = "PFVPV01 "
        + (answer.contains(" S") ? answer.replace(" S", " R") : answer.replace("\r\n", "OK"));
    while (!bytes.endsWith(answer)) {
        const QByteArray byte = pc.read(1);
        if (byte.isEmpty())
            return bytes + " and no more";
        bytes += byte;
    }
    return bytes.chopped(answer.size());
}

void TstPfvpSlave::answers()
{
    const struct {
        const char *name;
        Port port;
        QByteArray request, answer;
    } rows[] = {
        {"COM1 RS-232", Port::ttyO1, "PFVPV01 COM1RS232\r\n", "PFVPV01 COM1RS232OK"},
        {"COM1 RS-485", Port::ttyO3, "PFVPV01 COM1RS485\r\n", "PFVPV01 COM1RS485OK"},
        {"COM2 RS-485", Port::ttyO4, "PFVPV01 COM2RS485\r\n", "PFVPV01 COM2RS485OK"},
        {"peer's USB host", Port::ttyGS0, "PFVPV01 USBHOST S\r\n", "PFVPV01 USBHOST R\r\n"},
        {"peer's USB device", Port::ttyUSB0, "PFVPV01 USBDEVI S\r\n", "PFVPV01 USBDEVI R\r\n"},
        {"another port's request", Port::ttyO3, "PFVPV01 COM2RS485\r\n", ""},
        {"the answer itself", Port::ttyO1, "PFVPV01 COM1RS232OK", ""},
        {"a port that is not there", Port::ttyO4, "PFVPV01 COM3RS485\r\n", ""},
        {"cut short", Port::ttyO1, "PFVPV01 COM1RS232\r", ""},
    };
    for (const auto &row : rows)
        QVERIFY2(exchange(slave_, row.port, row.request) == row.answer, row.name);
}

// A burst is eaten up a request's length a tick; what is left over in the end is dropped.
void TstPfvpSlave::recoversFromNoise()
{
    const QByteArray burst = QByteArray(40, '\xFF') + '\0' + "PFVPV01 COM1";
    QCOMPARE(exchange(slave_, Port::ttyO1, burst), QByteArray());
    QCOMPARE(exchange(slave_, Port::ttyUSB0, burst), QByteArray());
}

void TstPfvpSlave::gotoT1()
{
    PfvpOperator person(other_);
    QVERIFY(person.press("GotoT1"));
    QVERIFY(notices(other_, {250, 240}, "GotoT1 To ReTesting (Please Re-Boot)"));
    QCOMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
}

void TstPfvpSlave::gotoT1WithoutDisk()
{
    PfvpOperator person(*readOnly_);
    QVERIFY(person.press("GotoT1"));
    QTRY_COMPARE(person.buttons({"StartSlaveMode", "GotoT1"}), QStringList());
    QVERIFY(!notices(*readOnly_, {250, 240}, "GotoT1 To ReTesting (Please Re-Boot)", 0));
    QVERIFY(!readOnly_->readFile("/usr/local/ict/HMI_T2_TEST_Flag.txt").isEmpty());
}

QTEST_MAIN(TstPfvpSlave)
#include "tst_pfvp_slave.moc"
