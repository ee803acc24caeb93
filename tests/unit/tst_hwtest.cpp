// The pure parts of the hardware tests. Figures are worked out by hand or by a separate program.
#include "hwtest/adc.h"
#include "hwtest/clockcompare.h"
#include "hwtest/factory.h"
#include "hwtest/idframe.h"
#include "hwtest/valueframe.h"
#include "state/teststate.h"
#include "system/command.h"

#include <QProcess>
#include <QTest>

class HwtestTest : public QObject {
    Q_OBJECT

private slots:
    void clocks();
    void rtcLinesRefused();
    void dateTakesOneArgument();
    void adc();
    void valueFrames();
    void ids();
    void factories();
    void programsWithoutEnd();
};

void HwtestTest::clocks()
{
    const QByteArray newYear("Thu Jan  1 08:00:00 2026  0.000000 seconds\n");
    const struct {
        const char *name;
        QByteArray rtc, request; // seconds minutes hours day month (unused) year
        qint64 apart;
        bool agree;
    } rows[] = {
        {"179 s behind", newYear, ":008E5902080101xx26", 179, true},
        {"180 s behind", newYear, ":008E0003080101xx26", 180, false},
        {"179 s ahead", newYear, ":008E0157070101xx26", 179, true},
        {"180 s ahead", newYear, ":008E0057070101xx26", 180, false},
        {"two-digit day, a year apart", "Tue Nov 18 16:05:09 2025\n", ":008E0905161811xx26",
         31536000, false},
        {"over the end of a 30-day month", "Thu Apr 30 23:59:00 2026\n", ":008E0000000105xx26", 60,
         true},
        {"over the end of a 31-day month", "Sat Jan 31 23:59:00 2026\n", ":008E0000000102xx26",
         86340, false},
        {"over the end of the year", "Wed Dec 31 23:59:00 2025\n", ":008E0000000101xx26", 345660,
         false},
    };
    for (const auto &row : rows) {
        ClockFields fields;
        QVERIFY2(fieldsOfRtcLine(row.rtc, &fields), row.name);
        const ClockFields station = fieldsOfRequest(row.request.constData());
        const qint64 apart = qAbs(approximateSeconds(fields) - approximateSeconds(station));
        QVERIFY2(apart == row.apart && clocksAgree(fields, station) == row.agree, row.name);
    }
}

void HwtestTest::rtcLinesRefused()
{
    ClockFields fields;
    QVERIFY(!fieldsOfRtcLine("", &fields));
    QVERIFY(!fieldsOfRtcLine("Thu Mai  1 08:00:00 2026\n", &fields)); // another month name
    QVERIFY(!fieldsOfRtcLine("2026-01-01 08:00:00.000000+08:00\n", &fields)); // another layout
    QVERIFY(!fieldsOfRtcLine("Thu Jan  1 08:00:00 20", &fields)); // ends before the year
}

void HwtestTest::dateTakesOneArgument()
{
    const QByteArray quotes = "`;$(\" \" 20\\ .' ";
    QCOMPARE(dateArgument(":008D5859233112xx26"), QByteArray("123123592026.58"));
    QCOMPARE(dateArgument(":008D' \" \" $(`;xx\\ "), quotes);
    // The brackets stand once an argument.
    QCOMPARE(runProgram("printf", {"[%s]", quotes}), '[' + quotes + ']');
}

void HwtestTest::adc()
{
    const struct {
        const char *name;
        int channel, raw;
        double value;
    } rows[] = {
        {"5 V", 4, 3731, 5001.0},
        {"3.3 V", 5, 3693, 3300.0},
        {"battery, 983.67 mV at the pin count as 983", 6, 2201, 2949.0},
        {"battery, one step more", 6, 2202, 2952.0},
        {"full scale", 6, 4095, 5490.0},
        // 600 mV make r = 1, so the temperature is 1023630 / 3435 - 275.5.
        {"thermistor, 25 degrees on the chip", 7, 1343, 22.5},
        {"thermistor, 915 mV", 7, 2048, 4.831976164653},
        {"thermistor of another channel", 0, 1343, 22.5},
    };
    for (const auto &row : rows)
        QVERIFY2(qAbs(adcValue(row.channel, row.raw) - row.value) < 1e-9, row.name);
}

// The units of the millivolts are dropped.
void HwtestTest::valueFrames()
{
    QCOMPARE(valueFrame("00", 3287.0), QByteArray(":000328D5\r\n"));
    QCOMPARE(valueFrame("1F", 2949.9), QByteArray(":1F02944B\r\n"));
    QCOMPARE(valueFrame("00", 0.0), QByteArray(":00000000\r\n"));
}

void HwtestTest::ids()
{
    const QByteArray refused, empty(""), hostile("';`\" $(x)&|\\n"), semi("SEMI-00017");
    const struct {
        const char *name;
        QByteArray frame, ownStation;
        QByteArray asNumber, asText; // the ID; a null one is a refused frame
    } rows[] = {
        {"to every panel", ":000601KLV07ABCW00123420C\r\n", "", "KLV07ABCW0012342",
         "KLV07ABCW0012342"},
        {"empty ID", ":000602D8\r\n", "", empty, empty},
        {"quotes and other shell words", ":000602" + hostile + "7B\r\n", "", hostile, hostile},
        {"to this station", ":0A0602SEMI-0001774\r\n", "0A", semi, semi},
        {"to another station", ":0A0602SEMI-0001774\r\n", "0B", refused, refused},
        {"to a station before there is one", ":0A0602SEMI-0001774\r\n", "", refused, refused},
        {"station in lower case", ":0a0602SEMI-0001754\r\n", "0A", semi, refused},
        {"LRC in lower case", ":000601KLV07ABCW00123420c\r\n", "", refused, refused},
        {"LRC over hexadecimal pairs", ":000602F8\r\n", "", refused, refused},
        {"no line end", ":000601KLV07ABCW00123420C\r\r", "", refused, refused},
        {"no start", ";000602D8\r\n", "", refused, refused},
        {"too short for an ID frame", ":00060D\r\n", "", refused, refused},
    };
    for (const auto &row : rows) {
        QByteArray id, sameId;
        const bool byNumber = takeId(row.frame, row.ownStation, StationMatch::AsNumber, &id),
                   byText = takeId(row.frame, row.ownStation, StationMatch::AsText, &sameId);
        QVERIFY2(byNumber != row.asNumber.isNull() && byText != row.asText.isNull(), row.name);
        QCOMPARE(id, row.asNumber);
        QCOMPARE(sameId, row.asText);
    }
    QCOMPARE(idFrame("0701", "KLV07ABCW0012342"), QByteArray(":000701KLV07ABCW00123420B\r\n"));
}

void HwtestTest::factories()
{
    const struct {
        const char *name;
        QByteArray id;
        int before, factory;
    } rows[] = {
        {"ninth character W", "12345678W0", 0, 1},
        {"ninth character T", "12345678TW345678", 0, 2},
        {"17 characters still by the ninth", "12345678WT1234567", 0, 1},
        {"18 characters by the tenth", "12345678WT12345678", 0, 2},
        {"19 characters by the ninth", "12345678WT123456789", 0, 1},
        {"another marker", "12345678w0", 1, 0},
        {"nine characters tell nothing", "12345678W", 2, 2},
    };
    for (const auto &row : rows) {
        g_FactoryInfo = row.before;
        classifyFactory(row.id);
        QVERIFY2(g_FactoryInfo == row.factory, row.name);
    }
}

static int warnings = 0;

void HwtestTest::programsWithoutEnd()
{
    const auto handler = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &) { ++warnings; });
    const QByteArray kept = runProcess("yes", 500);
    QProcess application;
    startProcess(application, "sh -c \"echo a; echo b; exec yes\"");
    const QByteArray asked = awaitOutput(
        application, NoTimeLimit, [](const QByteArray &output) { return output.contains("b\n"); });
    qInstallMessageHandler(handler);
    QCOMPARE(kept.size(), OutputLimit);
    QCOMPARE(asked.left(6), QByteArray("a\nb\ny\n"));
    QCOMPARE(warnings, 0); // of a process that is destroyed while it runs
}

QTEST_GUILESS_MAIN(HwtestTest)
#include "tst_hwtest.moc"
