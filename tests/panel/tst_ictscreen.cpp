#include "fixture/finger.h"
#include "panel/agentpanel.h"
#include "panel/expectedscreen.h"

// What the operator sees in ICT mode, pixel by pixel: nothing missing, nothing left over.
class TstIctScreen : public QObject {
    Q_OBJECT

private slots:
    void ict();
    void t1();
    void bi();
    void t2();
};

void TstIctScreen::ict()
{
    AgentPanel at;
    QVERIFY(at.boot("ICT"));
    at.fixture.setFault("com1-485:silent");
    QCOMPARE(at.ask(requestFrame("8000")), requestFrame("8000"));
    QCOMPARE(at.ask(requestFrame("8102")), requestFrame("81F2"));
    Expected screen;
    screen.text(40, 30, "===== Ostra HMI KLV-100 ICT Test =====", 18, QColor(128, 0, 0))
        .items(ictItems, "0001F00000000000")
        .traffic(":0081027D", ":0081F28D");
    QVERIFY(screen.isShown(at.panel));
}

// The line of the clock comparison is gone with the next request, that of the end check stays,
// after a colour too.
void TstIctScreen::t1()
{
    AgentPanel at;
    at.panel.writeFile(at.ict("HMI_T1_TEST_Flag.txt"),
                       QByteArray("1" + QByteArray(61, '\0') + "\r\n").repeated(19));
    QVERIFY(at.boot("T1"));
    const QByteArray rtc = "Thu Jan  1 08:00:00 2026  0.000000 seconds";
    at.panel.toolPrints("hwclock", rtc + '\n');
    const auto clock = [](const char *code, const QDate &day) {
        return clockRequest(code, QDateTime(day, {8, 0}, Qt::UTC));
    };
    const QByteArray other = clock("8E", {2026, 6, 15}), end = requestFrame("0101");
    const struct {
        QByteArray request, reply, shown;
    } rows[] = {{other, "8EF0", other.chopped(2)},
                {requestFrame("8000"), "8000", ":00800080"},
                {":9510FF8000", "9510", ""},
                {end, "01FF", end.chopped(2)},
                {"power", "", ""},
                {clock("8E", {2026, 1, 1}), "8E00", ""},
                {clock("8D", {2026, 1, 1}), "8D00", ""},
                {end, "01FF", end.chopped(2)}};
    bool isChecked = false; // then the clock was set, and has not run through a power-off
    for (const auto &row : rows) {
        if (row.request == "power") {
            QVERIFY(at.boot("T1"));
            continue;
        }
        const QByteArray reply = requestFrame(row.reply);
        QCOMPARE(at.ask(row.request), reply);
        isChecked |= row.reply == "8E00";
        if (row.shown.isEmpty())
            continue;
        Expected screen;
        screen.text(40, 30, "      Ostra HMI KLV-100 T1 Test =====", 18, Qt::red)
            .items(t1Items, QByteArray(18, '1') + (row.reply == "01FF" ? 'F' : '1'))
            .corners()
            .traffic(row.shown, reply.chopped(2));
        if (row.reply == "8EF0")
            screen.text(300, 320, "HMI : " + rtc, 14, Qt::blue);
        const auto condition = [&](int y, const char *name, bool met) {
            screen.text(300, y, QString(met ? "O " : "X ") + name, 14, met ? Qt::blue : Qt::red);
        };
        if (row.reply == "01FF") {
            condition(338, "Power on/off", !isChecked);
            condition(356, "RTC Check", isChecked);
        }
        QVERIFY(screen.isShown(at.panel));
    }
}

void TstIctScreen::bi()
{
    AgentPanel at;
    at.panel.writeFile(at.ict("HMI_STATION_NUM.txt"), "1F");
    QVERIFY(at.boot("BI"));
    const auto frame = [](const char *code) { return requestFrame(code, "1F"); };
    QCOMPARE(at.ask(frame("8500")), frame("8500"));
    QCOMPARE(at.ask(frame("9507")), frame("9507"));
    QCOMPARE(at.ask(frame("9505")), frame("9505"));
    QVERIFY(Expected(Qt::green).isShown(at.panel)); // no band is left
    at.panel.setAttribute(attribute::pressure, "37");
    QCOMPARE(at.ask(frame("9003")), frame("90F3"));
    Expected screen;
    screen.text(40, 30, "===== Ostra HMI KLV-100 BI Test =====", 18, Qt::magenta)
        .text(510, 30, "SN:(31)", 18, Qt::blue)
        .items(biItems, "110F00")
        .traffic(frame("9003").chopped(2), frame("90F3").chopped(2))
        .text(300, 320, "TP_Pressure : 37", 14, Qt::blue);
    QVERIFY(screen.isShown(at.panel));
}

// A pattern after the other, each alone.
void TstIctScreen::t2()
{
    AgentPanel at;
    QVERIFY(at.boot("T2"));
    const auto shows = [&at](const char *code, const Expected &screen) {
        return at.ask(requestFrame(code)) == requestFrame(code) && screen.isShown(at.panel);
    };
    Expected bands, targets;
    bands.fill(0, 0, 265, 480, Qt::red).fill(265, 0, 265, 480, Qt::green);
    bands.fill(530, 0, 270, 480, Qt::blue);
    for (const QPoint &at : touchTargets(checkMargin))
        targets.fill(at.x() - 16, at.y() - 16, 32, 32, Qt::green).cross(at, Qt::black);
    QVERIFY(shows("9507", bands));
    QVERIFY(shows("9030", targets));
    QVERIFY(shows("9506", Expected(Qt::blue)));
    Expected screen;
    screen.text(40, 30, "      Ostra HMI KLV-100 T2 Test =====", 18, Qt::blue)
        .items(t2Items, "00000001000000010")
        .corners();
    Expected rest(screen);
    screen.traffic(":0090036D", ":0090036D").text(300, 320, "TP_Pressure : 0", 14, Qt::blue);
    QVERIFY(shows("9003", screen));
    // The request that brings the list back need not be one that is obeyed.
    QVERIFY(shows("9505", Expected(Qt::green)));
    QCOMPARE(at.ask("KLV-101-01\n", 18), QByteArray("FORCIBLY_GOTO_FAIL"));
    rest.traffic("KLV-101-01", "FORCIBLY_GOTO_FAIL");
    QVERIFY(rest.isShown(at.panel));
}

QTEST_MAIN(TstIctScreen)
#include "tst_ictscreen.moc"
