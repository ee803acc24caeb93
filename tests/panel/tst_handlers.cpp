#include "panel/agentpanel.h"

// What the handlers do beside their replies, and what they make of data from a station that means
// no good or of files that are not as they should be.
class TstHandlers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void semiMachineIds();
    void fullMedium();
    void colours();
    void usbPortSwitchesUnanswered();
    void usbWriteFails();

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

} // namespace

void TstHandlers::initTestCase()
{
    for (const char *level : {"ICT", "T1"}) {
        panels_[level] = std::make_unique<AgentPanel>();
        at(level).panel.writeFile(AgentPanel::ict(semiFile), semiId);
        QVERIFY(at(level).boot(level));
        QCOMPARE(at(level).ask(requestFrame("8000")), requestFrame("8000"));
        QTRY_COMPARE(at(level).results(level).mid(3, 1), QByteArray("1"));
    }
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
        QCOMPARE(panel.all(identityFrame("0602", id)), requestFrame(stored ? "0602" : "06F2"));
        const QByteArray kept = stored ? id : before;
        QCOMPARE(panel.panel.readFile(AgentPanel::ict(semiFile)), kept);
        QTRY_COMPARE(panel.results("ICT").mid(9, 1), QByteArray(stored ? "1" : "F"));
        QCOMPARE(panel.all(requestFrame("0702")), identityFrame("0702", kept));
    }
}

// Nothing is granted for what was not stored.
void TstHandlers::fullMedium()
{
    const struct {
        QByteArray level, file, request, reply;
    } rows[] = {{"ICT", semiFile, identityFrame("0602", semiId), "06F2"},
                {"T1", machineFile, identityFrame("0601", machineId), "06F1"},
                {"T1", stationFile, identityFrame("0601", "20254711W12345631"), "06F1"},
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

void TstHandlers::usbPortSwitchesUnanswered()
{
    AgentPanel &panel = at("T1");
    for (const char *code : {"CE00", "CE01"}) {
        QCOMPARE(panel.all(requestFrame(code)), QByteArray());
        QCOMPARE(panel.panel.attribute("/sys/class/usb_role/usb0-role-switch/role"),
                 QByteArray(code[3] == '0' ? "host" : "device"));
    }
}

// What an earlier test left at the other end does not pass for what could not be written now.
void TstHandlers::usbWriteFails()
{
    AgentPanel at(failing("/mnt/ramdisk/HMI_ICT_Test.txt", "write:error=EIO:when=2+"));
    QVERIFY(at.boot("ICT"));
    QTRY_VERIFY(QFile::exists(at.panel.hostPath("/media/sda/HMI_ICT_Test.txt")));
    QCOMPARE(at.ask(requestFrame("A200")), requestFrame("A200"));
    QCOMPARE(at.ask(requestFrame("A200")), requestFrame("A2F0"));
}

QTEST_GUILESS_MAIN(TstHandlers)
#include "tst_handlers.moc"
