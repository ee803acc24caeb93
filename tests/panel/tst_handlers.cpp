#include "panel/agentpanel.h"
#include "station/codec.h"

// What the handlers do beside their replies, and what they make of data from a station that means
// no good or of files that are not as they should be.
class TstHandlers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void unfinishedTests();
    void silence_data();
    void silence();
    void semiMachineIds();
    void machineIds();
    void stationOfTheRequest();
    void fullMedium();
    void colours();
    void crcLineOfAnyLength();
    void toneOfTheBuzzer();
    void descriptorsLeftOpen();
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
    return identityRequest(0, code, id);
}

QByteArray clock(const QByteArray &kind)
{
    return clockRequest(kind, QDateTime::currentDateTimeUtc());
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

// A test that had passed and hangs now is a failure, whatever happens to the panel meanwhile.
void TstHandlers::unfinishedTests()
{
    const struct {
        QByteArray level, request, fault;
        int item;
    } rows[] = {{"ICT", requestFrame("8500"), "script:chk_ddr.sh=hangs", 7},
                {"ICT", requestFrame("9502"), "script:lcd_circuit_test_init.sh=hangs", 8},
                {"T1", clock("8D"), "script:hwclock=hangs", 13},
                {"T2", requestFrame("8102"), "", 5}};
    for (const auto &row : rows) {
        AgentPanel panel;
        const QString flags = AgentPanel::ict("HMI_" + row.level + "_TEST_Flag.txt");
        panel.panel.writeFile(flags, QByteArray("1" + QByteArray(61, '\0') + "\r\n").repeated(19));
        QVERIFY(panel.boot(row.level));
        QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
        if (!row.fault.isEmpty())
            QCOMPARE(panel.fixture.setFault(row.fault), QString());
        panel.link().write(row.request);
        QTRY_COMPARE_WITH_TIMEOUT(panel.results(row.level).mid(row.item - 1, 1), QByteArray("F"),
                                  20000);
    }
}

struct Silence {
    QByteArray name, level, request;
    int item = 0; // that it fails all the same, from 1; 0 for none
};
Q_DECLARE_METATYPE(Silence)

void TstHandlers::silence_data()
{
    QVector<Silence> rows = {
        {"ICT set the clock", "ICT", clock("8D")},
        {"ICT compare the clock", "ICT", clock("8E")},
        {"T2 set the clock", "T2", clock("8D")},
        {"ICT machine ID", "ICT", identity("0601", machineId)},
        {"T2 machine ID", "T2", identity("0601", machineId)},
        {"T1 semi-machine ID", "T1", identity("0602", semiId)},
        {"T1 verify semi-machine ID", "T1", identity("0603", semiId)},
        {"machine ID, wrong check digits", "T1", identity("0601", machineId).replace('2', '3'), 11},
        {"machine ID to another station", "T1", identityRequest(7, "0601", machineId), 11},
        {"position of a file of three lines", "T1", requestFrame("9013")},
        {"position of the check, same file", "T1", requestFrame("9022")},
    };
    for (const char *code : {"9301", "9302", "9504", "9507", "9003", "9030", "9000", "9001"})
        rows.append({code, "ICT", requestFrame(code)});
    addRows(rows);
}

void TstHandlers::silence()
{
    QFETCH(Silence, row);
    AgentPanel &panel = at(row.level);
    QByteArray results = panel.results(row.level);
    const QList<QByteArray> files = {semiFile, machineFile, stationFile};
    QByteArrayList before, after;
    for (const QByteArray &file : files)
        before << panel.panel.readFile(AgentPanel::ict(file));
    panel.panel.clearCalls();
    panel.sendAndSettle(row.request);
    QCOMPARE(panel.panel.backlight(), 100);
    QCOMPARE(panel.all(""), QByteArray());
    if (row.item)
        results[row.item - 1] = 'F';
    QCOMPARE(panel.results(row.level), results);
    for (const QByteArray &file : files)
        after << panel.panel.readFile(AgentPanel::ict(file));
    QCOMPARE(after, before);
    for (const ToolCall &call : panel.panel.calls())
        QVERIFY2(call.tool != "hwclock", qPrintable(call.line()));
}

void TstHandlers::semiMachineIds()
{
    const struct {
        const char *name;
        QByteArray id;
        bool stored;
    } rows[] = {
        {"shell words", "';`reboot`$(id)\"|", true},
        {"placeholders", "%1%2%3%4%s%n\\n", true},
        {"20 characters", "ABCDEFGHIJKLMNOPQRST", true},
        {"eighth bits, which the line strips", "SEMI\303\244\303\266\3030001", false},
        {"with a NUL", QByteArray("SEMI\0000001111", 13), false},
        {"with a bell", "SEMI\a0001111", false},
        {"21 characters", "ABCDEFGHIJKLMNOPQRSTU", false},
    };
    for (const auto &[name, id, stored] : rows) {
        qInfo("%s", name);
        AgentPanel &panel = at("ICT");
        const QByteArray before = panel.panel.readFile(AgentPanel::ict(semiFile));
        // What of the line was too long is no request.
        QCOMPARE(panel.all(identity("0602", id)), requestFrame(stored ? "0602" : "06F2"));
        const QByteArray kept = stored ? id : before;
        QCOMPARE(panel.panel.readFile(AgentPanel::ict(semiFile)), kept);
        QTRY_COMPARE(panel.results("ICT").mid(9, 1), QByteArray(stored ? "1" : "F"));
        QCOMPARE(panel.all(requestFrame("0702")), identity("0702", kept));
    }
}

void TstHandlers::machineIds()
{
    const struct {
        const char *name;
        QByteArray id;
        bool granted; // the items that its factory grants
        QByteArray station = ""; // the file afterwards; empty: not written
    } rows[] = {
        {"factory T", machineId, false},
        {"another factory", "20254711X12345678", false},
        {"28 characters", "20254711T1234567890123456789", false},
        {"factory W", "20254711W12345631", true, "1F"},
        {"factory W, 00", "20254711W12345600", true, "64"},
        {"factory W, 18 characters", "202547110W12345609", true, "09"},
    };
    // A line feed lost on the wire, and the next request taken in with a check sum that fits.
    QCOMPARE(at("T1").ask(identity("0601", "20254711T1\r:00800080")), requestFrame("06F1"));
    for (const auto &[name, id, granted, station] : rows) {
        qInfo("%s", name);
        AgentPanel &panel = at("T1");
        QCOMPARE(panel.ask(identity("0601", id)), requestFrame("0601"));
        QCOMPARE(panel.panel.readFile(AgentPanel::ict(machineFile)), id);
        QCOMPARE(panel.panel.readFile(AgentPanel::ict(stationFile)), station);
        QTRY_COMPARE(panel.results("T1").mid(10, 1), QByteArray("1"));
        QCOMPARE(panel.results("T1").mid(13, 3), QByteArray(granted ? "101" : "000"));
        QCOMPARE(panel.all(requestFrame("0701")), identity("0701", id));
    }
}

// The number is kept as it was sent, answered in upper case, and not the panel's own before BI.
void TstHandlers::stationOfTheRequest()
{
    AgentPanel &panel = at("T1");
    QCOMPARE(panel.ask(requestFrame("8A00", "0a")), requestFrame("8A00", "0A"));
    QTRY_COMPARE(panel.results("T1").mid(15, 1), QByteArray("1"));
    QCOMPARE(panel.panel.readFile(AgentPanel::ict(stationFile)), QByteArray("0a"));
    QCOMPARE(panel.all(requestFrame("8000", "0A")), QByteArray());
}

// Nothing is granted for what was not stored.
void TstHandlers::fullMedium()
{
    const struct {
        QByteArray level, file, request, reply;
    } rows[] = {{"ICT", semiFile, identity("0602", semiId), "06F2"},
                {"T1", machineFile, identity("0601", machineId), "06F1"},
                {"T1", stationFile, identity("0601", "20254711W12345631"), "06F1"},
                {"T1", stationFile, requestFrame("8A00", "1F"), "8AF0"}};
    for (const auto &row : rows) {
        AgentPanel panel;
        QVERIFY(panel.boot(row.level));
        const QString path = panel.panel.hostPath(AgentPanel::ict(row.file));
        QFile::remove(path);
        QVERIFY(QFile::link("/dev/full", path));
        QCOMPARE(panel.ask(row.request), requestFrame(row.reply));
        QCOMPARE(panel.ask(requestFrame("8500")), requestFrame("8500"));
        const QByteArray results = panel.results(row.level);
        QVERIFY2(results.count('1') <= 1, results + ' ' + row.reply); // of the memory
    }
}

// Nothing but the colour, and white with full light from the next request on.
void TstHandlers::colours()
{
    const struct {
        const char *name;
        QByteArray request, reply;
        QColor colour;
    } rows[] = {
        {"orange", ":9510FF8000", "9510", QColor(255, 128, 0)},
        {"lower case", ":951000ff80", "9510", QColor(0, 255, 128)},
        {"leading digits only", ":95101g-1 8", "9510", QColor(1, 0, 0)},
        {"white", ":9510FFFFFF", "9510", Qt::white},
        {"backlight off", requestFrame("9301"), "9301", Qt::black},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        VirtualPanel &panel = at("T1").panel;
        const auto isPlain = [&](const QColor &colour) {
            QImage wanted(800, 480, QImage::Format_RGB32);
            wanted.fill(colour);
            return differingPixels(panel.screen().grab(), wanted) == 0;
        };
        QCOMPARE(at("T1").ask(row.request), requestFrame(row.reply));
        QTRY_VERIFY(isPlain(row.colour));
        QCOMPARE(panel.backlight(), row.reply == "9301" ? 0 : 100);
        panel.setAttribute(attribute::backlight, "0");
        QCOMPARE(at("T1").ask(requestFrame("8000")), requestFrame("8000"));
        QTRY_COMPARE(colourAt(panel.screen().grab(), 0, 470), QColor(Qt::white));
        QCOMPARE(panel.backlight(), 100);
    }
}

void TstHandlers::crcLineOfAnyLength()
{
    AgentPanel &panel = at("ICT");
    const QByteArray line = QByteArray(55, 'C') + '\n';
    panel.panel.toolPrints("ReadCrc.bin", line + "more\n");
    QCOMPARE(panel.all(requestFrame("AA00")), line);
    panel.panel.toolPrints("ReadCrc.bin", QByteArray(5000, 'C'));
    QCOMPARE(panel.all(requestFrame("AA00")), QByteArray(60, 'C'));
    panel.panel.restoreTool("ReadCrc.bin");
}

void TstHandlers::toneOfTheBuzzer()
{
    AgentPanel &panel = at("ICT");
    panel.panel.events().clear();
    QCOMPARE(panel.ask(requestFrame("9201")), requestFrame("9201"));
    double seconds;
    QCOMPARE(toneEvents(panel.panel, &seconds), QByteArray("18 3 99, 18 2 1000, 18 2 0"));
    QVERIFY(seconds > 2.5);
}

// A second round closes what the first one left: RS-422's two, the buzzer, the stick's other end.
void TstHandlers::descriptorsLeftOpen()
{
    AgentPanel &panel = at("ICT");
    QCOMPARE(panel.fixture.setFault("com2-422:open"), QString());
    QCOMPARE(panel.fixture.setFault("usb:other"), QString());
    const auto descriptors = [&] {
        const QDir open(QString("/proc/%1/fd").arg(panel.panel.agentPid()));
        QStringList targets;
        for (const QFileInfo &entry : open.entryInfoList(QDir::AllEntries | QDir::System))
            targets << entry.symLinkTarget();
        return targets.filter(QRegularExpression("pts/|tty|event1|ICT_Test")).size();
    };
    int before = 0;
    for (int round = 0; round < 2; ++round) {
        before = descriptors();
        QCOMPARE(panel.ask(requestFrame("8107")), requestFrame("81F7"));
        QCOMPARE(panel.ask(requestFrame("FF01"), 14).left(8), QByteArray("ToolVer="));
        QCOMPARE(panel.ask(requestFrame("9202")), requestFrame("9202"));
        QCOMPARE(panel.ask(requestFrame("A200")), requestFrame("A2F0"));
        QCOMPARE(panel.ask(requestFrame("8000")), requestFrame("8000"));
    }
    QCOMPARE(descriptors(), before);
    panel.fixture.clearFault("com2-422");
    panel.fixture.clearFault("usb");
}

void TstHandlers::exports()
{
    const QByteArray usb = "/media/sda1", sd = "/media/mmcblk0p1";
    const struct {
        const char *name;
        QByteArray code, medium, fault;
        QByteArray said; // to people: in the resume log, or printed
    } rows[] = {
        {"CC10", "CC10", usb, "", "------ Export Log From Folder to USB ------\n"},
        {"CC11", "CC11", sd, "", "------ Export Log From Folder to SD ------\n"},
        {"CC00", "CC00", usb, "", "------ Export Log From Partition to USB ------\n"},
        {"CC01", "CC01", sd, "", "------ Export Log From Partition to SD ------\n"},
        {"CC10 stick", "CC10", usb, "stick", ""},
        {"CC00 stick", "CC00", usb, "stick",
         "USB Disk not exitst! Export Log From Partition to USB Fail"},
        {"CC01 sd", "CC01", sd, "sd", "SD Card not exitst! Export Log From Partition to SD Fail"},
        {"CC01 archive", "CC01", sd, "archive",
         "Partition not exitst! Export Log From Partition to SD Fail"},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        const QByteArray code = row.code, fault = row.fault, said = row.said;
        AgentPanel &at = this->at("T2");
        VirtualPanel &panel = at.panel;
        const bool folder = code[2] == '1', done = fault.isEmpty();
        const QString resume = AgentPanel::ict("HMI_Factory_Resume.txt"),
                      copy = row.medium + "/HMI_TEST_LEVEL.txt", fetched = "/tmp/ict_log.tgz";
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
}

void TstHandlers::usbPortSwitchesUnanswered()
{
    AgentPanel &panel = at("T2");
    for (const char *code : {"CE00", "CE01"}) {
        QCOMPARE(panel.all(requestFrame(code)), QByteArray());
        QCOMPARE(panel.panel.attribute("/sys/class/usb_role/usb0-role-switch/role"),
                 QByteArray(code[3] == '0' ? "host" : "device"));
    }
}

QTEST_GUILESS_MAIN(TstHandlers)
#include "tst_handlers.moc"
