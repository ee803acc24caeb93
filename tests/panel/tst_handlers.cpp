#include "panel/agentpanel.h"
#include "station/codec.h"

// What the handlers do beside their replies, and what they make of data from a station that means
// no good or of files that are not as they should be.
class TstHandlers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void silence_data();
    void silence();
    void semiMachineIds_data();
    void semiMachineIds();
    void machineIds_data();
    void machineIds();
    void stationOfTheRequest();
    void colours_data();
    void colours();
    void crcLineOfAnyLength();
    void toneOfTheBuzzer();
    void exports_data();
    void exports();
    void usbPortSwitchesUnanswered();

private:
    AgentPanel &at(const QByteArray &level)
    {
        return *panels_[level];
    }
    std::map<QByteArray, std::unique_ptr<AgentPanel>> panels_; // by the level they are at
};

namespace {

const char semiFile[] = "HMI_SEMIMACHINE_ID.txt", machineFile[] = "HMI_MACHINE_ID.txt",
           stationFile[] = "HMI_STATION_NUM.txt";
const QByteArray semiId = "SEMI25110001", machineId = "20254711T12345678";

QByteArray identity(const QByteArray &code, const QByteArray &id)
{
    return station::identityRequest(0, code, id);
}

QByteArray clock(const QByteArray &kind)
{
    return station::clockRequest(kind, QDateTime::currentDateTimeUtc());
}

} // namespace

void TstHandlers::initTestCase()
{
    for (const char *level : {"ICT", "T1", "T2"}) {
        panels_[level] = std::make_unique<AgentPanel>();
        at(level).panel.writeFile(AgentPanel::ict(semiFile), semiId);
        at(level).panel.writeFile(AgentPanel::ict("T1_TP_Value.txt"), "(1,1)\n(2,2)\n(3,3)\n");
        QVERIFY(at(level).boot(level));
        QCOMPARE(at(level).ask(requestFrame("8000")), requestFrame("8000"));
        QTRY_COMPARE(at(level).results(level).mid(3, 1), QByteArray("1"));
    }
}

void TstHandlers::silence_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("item"); // that it fails all the same, from 1; 0 for none
    const auto row = [](const char *level, const char *what, const QByteArray &request,
                        int item = 0) {
        QTest::addRow("%s %s", level, what) << QByteArray(level) << request << item;
    };
    row("ICT", "set the clock", clock("8D"));
    row("ICT", "compare the clock", clock("8E"));
    row("T2", "set the clock", clock("8D"));
    row("ICT", "machine ID", identity("0601", machineId));
    row("T2", "machine ID", identity("0601", machineId));
    row("T1", "semi-machine ID", identity("0602", semiId));
    row("T1", "verify semi-machine ID", identity("0603", semiId));
    row("T1", "machine ID, wrong check digits", identity("0601", machineId).replace('2', '3'), 11);
    row("T1", "machine ID to another station", station::identityRequest(7, "0601", machineId), 11);
    for (const char *code : {"9301", "9302", "9504", "9507", "9003", "9030", "9000", "9001"})
        row("ICT", code, requestFrame(code));
    row("T1", "position of a file of three lines", requestFrame("9013"));
    row("T1", "position of the check, same file", requestFrame("9022"));
}

void TstHandlers::silence()
{
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, request);
    QFETCH(int, item);
    AgentPanel &panel = at(level);
    QByteArray results = panel.results(level);
    const QList<QByteArray> files = {semiFile, machineFile, stationFile};
    QByteArrayList before, after;
    for (const QByteArray &file : files)
        before << panel.panel.readFile(AgentPanel::ict(file));
    panel.panel.clearCalls();
    QCOMPARE(panel.ask(request, 1, 400), QByteArray());
    if (item)
        results[item - 1] = 'F';
    QCOMPARE(panel.results(level), results);
    for (const QByteArray &file : files)
        after << panel.panel.readFile(AgentPanel::ict(file));
    QCOMPARE(after, before);
    for (const ToolCall &call : panel.panel.calls())
        QVERIFY2(call.tool != "hwclock", qPrintable(call.line()));
    QCOMPARE(panel.panel.backlight(), 100);
    QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
}

void TstHandlers::semiMachineIds_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<bool>("stored");
    QTest::newRow("shell words") << QByteArray("';`reboot`$(id)\"|") << true;
    QTest::newRow("placeholders") << QByteArray("%1%2%3%4%s%n\\n") << true;
    QTest::newRow("20 characters") << QByteArray("ABCDEFGHIJKLMNOPQRST") << true;
    QTest::newRow("eighth bits, which the line strips") << QByteArray("SEMI\xc3\xa4\xc3\xb6\xc3"
                                                                      "0001")
                                                        << false;
    QTest::newRow("with a NUL") << QByteArray("SEMI\0000001111", 13) << false;
    QTest::newRow("21 characters") << QByteArray("ABCDEFGHIJKLMNOPQRSTU") << false;
}

void TstHandlers::semiMachineIds()
{
    QFETCH(QByteArray, id);
    QFETCH(bool, stored);
    AgentPanel &panel = at("ICT");
    const QByteArray before = panel.panel.readFile(AgentPanel::ict(semiFile));
    QCOMPARE(panel.ask(identity("0602", id)), requestFrame(stored ? "0602" : "06F2"));
    panel.link().read(1, 300); // what of the line was too long is no request
    const QByteArray kept = stored ? id : before;
    QCOMPARE(panel.panel.readFile(AgentPanel::ict(semiFile)), kept);
    QTRY_COMPARE(panel.results("ICT").mid(9, 1), QByteArray(stored ? "1" : "F"));
    const QByteArray frame = identity("0702", kept);
    QCOMPARE(panel.ask(requestFrame("0702"), frame.size() + 1, 1000), frame);
}

void TstHandlers::machineIds_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QByteArray>("station"); // the file afterwards; empty: not written
    QTest::addColumn<bool>("granted");
    QTest::newRow("factory T") << machineId << QByteArray() << false;
    QTest::newRow("another factory") << QByteArray("20254711X12345678") << QByteArray() << false;
    QTest::newRow("28 characters")
        << QByteArray("20254711T1234567890123456789") << QByteArray() << false;
    QTest::newRow("factory W") << QByteArray("20254711W12345631") << QByteArray("1F") << true;
    QTest::newRow("factory W, 00") << QByteArray("20254711W12345600") << QByteArray("64") << true;
    QTest::newRow("factory W, 18 characters")
        << QByteArray("202547110W12345609") << QByteArray("09") << true;
}

void TstHandlers::machineIds()
{
    QFETCH(QByteArray, id);
    QFETCH(QByteArray, station);
    QFETCH(bool, granted);
    AgentPanel &panel = at("T1");
    QCOMPARE(panel.ask(identity("0601", id)), requestFrame("0601"));
    QCOMPARE(panel.panel.readFile(AgentPanel::ict(machineFile)), id);
    QCOMPARE(panel.panel.readFile(AgentPanel::ict(stationFile)), station);
    QTRY_COMPARE(panel.results("T1").mid(10, 1), QByteArray("1"));
    QCOMPARE(panel.results("T1").mid(13, 3), QByteArray(granted ? "101" : "000"));
    const QByteArray frame = identity("0701", id);
    QCOMPARE(panel.ask(requestFrame("0701"), frame.size() + 1, 1000), frame);
}

// The number is kept as it was sent, answered in upper case, and not the panel's own before BI.
void TstHandlers::stationOfTheRequest()
{
    AgentPanel &panel = at("T1");
    QCOMPARE(panel.ask(requestFrame("8A00", "0a")), requestFrame("8A00", "0A"));
    QTRY_COMPARE(panel.results("T1").mid(15, 1), QByteArray("1"));
    QCOMPARE(panel.panel.readFile(AgentPanel::ict(stationFile)), QByteArray("0a"));
    QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
    QCOMPARE(panel.ask(requestFrame("8000", "0A"), 1, 400), QByteArray());
}

void TstHandlers::colours_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QVector<QColor>>("colours"); // at x 0, 264, 265, 529, 530 and 799
    const auto row = [](const char *name, const QByteArray &request, const QByteArray &reply,
                        const QColor &left, const QColor &middle, const QColor &right) {
        QTest::newRow(name) << request << reply
                            << QVector<QColor>{left, left, middle, middle, right, right};
    };
    const auto plain = [&](const char *name, const QByteArray &request, const QByteArray &reply,
                           const QColor &colour) {
        row(name, request, reply, colour, colour, colour);
    };
    plain("orange", ":9510FF8000", "9510", QColor(255, 128, 0));
    plain("lower case", ":951000ff80", "9510", QColor(0, 255, 128));
    plain("leading digits only", ":95101g-1 8", "9510", QColor(1, 0, 0));
    plain("white", ":9510FFFFFF", "9510", Qt::white);
    plain("green", requestFrame("9505"), "9505", QColor(0, 255, 0));
    plain("backlight off", requestFrame("9301"), "9301", Qt::black);
    row("bands", requestFrame("9507"), "9507", QColor(255, 0, 0), QColor(0, 255, 0),
        QColor(0, 0, 255));
}

// Nothing but the colour, and white with full light from the next request on.
void TstHandlers::colours()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    QFETCH(QVector<QColor>, colours);
    AgentPanel &panel = at("T1");
    QCOMPARE(panel.ask(request), requestFrame(reply));
    const auto shown = [](const QImage &image) {
        QVector<QColor> colours;
        for (int x : {0, 264, 265, 529, 530, 799})
            colours << colourAt(image, x, 470);
        return colours;
    };
    QImage screen;
    QTRY_COMPARE(shown(screen = panel.panel.screen().grab()), colours);
    // No text of the list, in whose place a row of the pattern is as below it.
    const QRect list(40, 60, 224, 300);
    for (int y = list.top(); y < list.bottom(); y += 3) {
        for (int x = list.left(); x < list.right(); x += 3)
            QCOMPARE(colourAt(screen, x, y), colours[0]);
    }
    QCOMPARE(panel.panel.backlight(), reply == "9301" ? 0 : 100);
    panel.panel.setAttribute(attribute::backlight, "0");
    QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
    QTRY_COMPARE(shown(panel.panel.screen().grab()), QVector<QColor>(6, Qt::white));
    QCOMPARE(panel.panel.backlight(), 100);
}

void TstHandlers::crcLineOfAnyLength()
{
    AgentPanel &panel = at("ICT");
    const QByteArray line = QByteArray(55, 'C') + '\n';
    panel.panel.toolPrints("ReadCrc.bin", line + "more\n");
    QCOMPARE(panel.ask(requestFrame("AA00"), 57, 1000), line);
    panel.panel.toolPrints("ReadCrc.bin", QByteArray(5000, 'C'));
    QCOMPARE(panel.ask(requestFrame("AA00"), 61, 1000), QByteArray(60, 'C'));
    panel.panel.restoreTool("ReadCrc.bin");
    QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
}

void TstHandlers::toneOfTheBuzzer()
{
    AgentPanel &panel = at("ICT");
    panel.panel.events().clear();
    QCOMPARE(panel.ask(requestFrame("9201"), 11, 6000), requestFrame("9201"));
    const QVector<InputEvent> events = panel.panel.events().all();
    QCOMPARE(events.size(), 3);
    const int wanted[][3] = {{18, 3, 99}, {18, 2, 1000}, {18, 2, 0}};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(int(events[i].type), wanted[i][0]);
        QCOMPARE(int(events[i].code), wanted[i][1]);
        QCOMPARE(int(events[i].value), wanted[i][2]);
    }
    QVERIFY(qAbs(double(events[2].ns - events[1].ns) / 1e9 - 3) < 0.5);
}

void TstHandlers::exports_data()
{
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<QString>("medium");
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QByteArray>("said"); // to people: in the resume log, or printed
    const auto row = [](const QByteArray &code, const char *medium, const char *fault,
                        const char *said) {
        QTest::addRow("%s %s", code.constData(), fault)
            << code << QString(medium) << QString(fault) << QByteArray(said);
    };
    row("CC10", "/media/sda1", "", "------ Export Log From Folder to USB ------\n");
    row("CC11", "/media/mmcblk0p1", "", "------ Export Log From Folder to SD ------\n");
    row("CC00", "/media/sda1", "", "------ Export Log From Partition to USB ------\n");
    row("CC01", "/media/mmcblk0p1", "", "------ Export Log From Partition to SD ------\n");
    row("CC10", "/media/sda1", "stick", "");
    row("CC00", "/media/sda1", "stick",
        "USB Disk not exitst! Export Log From Partition to USB Fail");
    row("CC01", "/media/mmcblk0p1", "sd",
        "SD Card not exitst! Export Log From Partition to SD Fail");
    row("CC01", "/media/mmcblk0p1", "archive",
        "Partition not exitst! Export Log From Partition to SD Fail");
}

void TstHandlers::exports()
{
    QFETCH(QByteArray, code);
    QFETCH(QString, medium);
    QFETCH(QString, fault);
    QFETCH(QByteArray, said);
    AgentPanel &at = this->at("T2");
    VirtualPanel &panel = at.panel;
    const bool folder = code[2] == '1', done = fault.isEmpty();
    const QString resume = AgentPanel::ict("HMI_Factory_Resume.txt"),
                  copy = medium + "/HMI_TEST_LEVEL.txt", fetched = "/tmp/ict_log.tgz";
    // An archive, of another level than the folder's.
    QDir().mkpath(panel.hostPath("/mnt/ict_log"));
    panel.writeFile("/mnt/ict_log/HMI_TEST_LEVEL.txt", "T1 \n");
    QProcess::execute("tar",
                      {"czf", panel.hostPath("/mnt/ict_log/ict_log.tgz"), "-C",
                       panel.hostPath("/mnt/ict_log"), "HMI_TEST_LEVEL.txt"});
    for (const QString &old : {copy, fetched})
        QFile::remove(panel.hostPath(old));
    const QByteArray history = panel.readFile(resume), printed = panel.output();
    if (!done)
        QCOMPARE(at.fixture.setFault(fault), QString());
    QByteArray reply = code;
    if (!done)
        reply = (folder ? "CCE" : "CCF") + code.right(1);
    const QByteArray got = at.ask(requestFrame(code));
    at.fixture.clearFault(fault);
    QCOMPARE(got, requestFrame(reply));
    QTRY_COMPARE(panel.readFile(resume).mid(history.size()), done ? said : QByteArray());
    QCOMPARE(panel.output().mid(printed.size()), done ? QByteArray() : said);
    QCOMPARE(panel.readFile(copy), QByteArray(!done ? "" : folder ? "T2 \n" : "T1 \n"));
    // The archive is fetched before anything is checked.
    QCOMPARE(QFile::exists(panel.hostPath(fetched)), !folder && fault != "archive");
}

void TstHandlers::usbPortSwitchesUnanswered()
{
    AgentPanel &panel = at("T2");
    for (const char *code : {"CE00", "CE01"}) {
        QCOMPARE(panel.ask(requestFrame(code), 1, 400), QByteArray());
        QCOMPARE(panel.panel.attribute("/sys/class/usb_role/usb0-role-switch/role"),
                 QByteArray(code[3] == '0' ? "host" : "device"));
    }
}

QTEST_GUILESS_MAIN(TstHandlers)
#include "tst_handlers.moc"
