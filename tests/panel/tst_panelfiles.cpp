#include "panel/agentpanel.h"

// The panel's own files over boots, as cuts of power and broken disks leave them. The agent makes
// the best of what it finds and never ends over it.
class TstPanelFiles : public QObject {
    Q_OBJECT

private slots:
    void damagedFiles();
    void brokenDisks();
    void noScreen();

private:
    static bool isMute(VirtualPanel &panel);
};

namespace {

const QByteArray present = requestFrame("8000"), presentReply = ":00800080\r\n";
const QByteArray levelFile = "HMI_TEST_LEVEL.txt", flagFile = "HMI_ICT_TEST_Flag.txt",
                 logFile = "FactoryTestLog.txt";

} // namespace

// The window comes up, white, and the link stays closed.
bool TstPanelFiles::isMute(VirtualPanel &panel)
{
    panel.powerOn();
    return waitFor([&] { return colourAt(panel.screen().grab(), 790, 470) == Qt::white; },
                   DeadlineMs)
        && !panel.port(Port::ttyO1)->isOpenOnPanel();
}

void TstPanelFiles::damagedFiles()
{
    const QByteArray fresh = "0001000000000000";
    const struct {
        const char *name;
        QString file;
        QByteArray content;
        QByteArray results; // after a passed item 4
    } rows[] = {
        {"one letter of a level", levelFile, "T", fresh},
        {"noise for a level", levelFile, QByteArray(5000, '\xff'), fresh},
        {"flag file cut in a record", flagFile, QByteArray(180, '1'), "1101000000000000"},
        {"flag file of zero bytes", flagFile, QByteArray(16 * 64, '\0'), fresh},
        {"flag file of noise", flagFile, QByteArray(16 * 64, 'x'), "xxx1" + QByteArray(12, 'x')},
        {"flag file too long", flagFile, QByteArray(100 * 64, 'x'), "xxx1" + QByteArray(96, 'x')},
    };
    for (const auto &row : rows) {
        qInfo("%s", row.name);
        AgentPanel at;
        at.panel.writeFile(at.ict(row.file), row.content);
        QVERIFY(at.powerCycle());
        QCOMPARE(at.ask(present), presentReply);
        QTRY_COMPARE(at.results("ICT"), row.results);
        QVERIFY(at.panel.isOn());
    }
}

// Factory-new, and with files of an earlier boot.
void TstPanelFiles::brokenDisks()
{
    for (IctDisk disk : {IctDisk::readOnly, IctDisk::full}) {
        for (const bool used : {false, true}) {
            PanelOptions options;
            options.ictDisk = disk;
            AgentPanel at(options);
            if (used) {
                at.panel.writeFile(at.ict(levelFile), "ICT\n");
                at.panel.writeFile(at.ict(flagFile), QByteArray(16 * 64, '0'));
                at.panel.writeFile(at.ict(logFile), QByteArray(4000, 'x')); // 96 left of a page
            }
            if (disk == IctDisk::readOnly) {
                QVERIFY(isMute(at.panel));
                const QByteArray said = "Boot ends without a PC link, /usr/local/ict/" + levelFile;
                QVERIFY2(at.panel.output().contains(said), at.panel.output());
            } else {
                QVERIFY(at.powerCycle());
                QCOMPARE(at.ask(present), presentReply);
                // There is room for a level where there was one; where not, that is said.
                const QByteArray answer = used ? "FORCIBLY_GOTO_T1_PASS" : "FORCIBLY_GOTO_FAIL";
                QCOMPARE(at.all("KLV-100-01\n"), answer);
                QTRY_COMPARE(at.panel.readFile(at.ict(levelFile)), used ? "T1 \n" : "");
                QCOMPARE(at.ask(requestFrame("0400")), QByteArray(":0004F00C\r\n"));
                QTRY_COMPARE(at.panel.readFile(at.ict(logFile)).size() % 100, 0);
            }
            QVERIFY(at.panel.isOn());
        }
    }
}

// A board whose framebuffer failed still answers: the toolkit alone would end the agent.
void TstPanelFiles::noScreen()
{
    AgentPanel board;
    board.panel.setLevel("T1");
    QVERIFY(board.powerCycle(Port::ttyO1, {"-platform", "linuxfb"}));
    board.sendAndSettle(requestFrame("9000"));
    board.sendAndSettle(requestFrame("9000")); // closes the dialog of the first
    QCOMPARE(board.ask(present), presentReply);
    QVERIFY(board.panel.isOn());
    board.panel.powerCycle({"-platform", "linuxfb", "HMIAppCalibation"});
    QCOMPARE(board.panel.waitForExit(DeadlineMs), 255);
    QVERIFY(board.panel.output().endsWith("there is no screen\n"));
}

QTEST_GUILESS_MAIN(TstPanelFiles)
#include "tst_panelfiles.moc"
