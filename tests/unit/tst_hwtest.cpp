// The pure parts of the hardware tests. Figures are worked out by hand or by a separate program.
#include "hwtest/adc.h"
#include "hwtest/clockcompare.h"
#include "hwtest/factory.h"
#include "hwtest/idframe.h"
#include "hwtest/valueframe.h"
#include "state/teststate.h"
#include "system/command.h"

#include <QTest>

class HwtestTest : public QObject {
    Q_OBJECT

private slots:
    void clocks_data();
    void clocks();
    void rtcLinesRefused_data();
    void rtcLinesRefused();
    void dateTakesOneArgument_data();
    void dateTakesOneArgument();
    void adc_data();
    void adc();
    void valueFrames_data();
    void valueFrames();
    void ids_data();
    void ids();
    void factories_data();
    void factories();
    void stationInMachineId_data();
    void stationInMachineId();
};

void HwtestTest::clocks_data()
{
    QTest::addColumn<QByteArray>("rtc");
    QTest::addColumn<QByteArray>("request"); // seconds minutes hours day month (unused) year
    QTest::addColumn<qint64>("apart");
    QTest::addColumn<bool>("agree");
    const QByteArray newYear("Thu Jan  1 08:00:00 2026  0.000000 seconds\n");
    QTest::newRow("179 s behind") << newYear << QByteArray(":008E5902080101xx26") << 179LL << true;
    QTest::newRow("180 s behind") << newYear << QByteArray(":008E0003080101xx26") << 180LL << false;
    QTest::newRow("179 s ahead") << newYear << QByteArray(":008E0157070101xx26") << 179LL << true;
    QTest::newRow("180 s ahead") << newYear << QByteArray(":008E0057070101xx26") << 180LL << false;
    QTest::newRow("two-digit day, a year apart")
        << QByteArray("Tue Nov 18 16:05:09 2025\n") << QByteArray(":008E0905161811xx26")
        << 31536000LL << false;
    QTest::newRow("over the end of a 30-day month")
        << QByteArray("Thu Apr 30 23:59:00 2026\n") << QByteArray(":008E0000000105xx26") << 60LL
        << true;
    QTest::newRow("over the end of a 31-day month")
        << QByteArray("Sat Jan 31 23:59:00 2026\n") << QByteArray(":008E0000000102xx26") << 86340LL
        << false;
    QTest::newRow("over the end of the year")
        << QByteArray("Wed Dec 31 23:59:00 2025\n") << QByteArray(":008E0000000101xx26") << 345660LL
        << false;
}

void HwtestTest::clocks()
{
    QFETCH(QByteArray, rtc);
    QFETCH(QByteArray, request);
    ClockFields fields;
    QVERIFY(fieldsOfRtcLine(rtc, &fields));
    const ClockFields station = fieldsOfRequest(request.constData());
    QTEST(qAbs(approximateSeconds(fields) - approximateSeconds(station)), "apart");
    QTEST(clocksAgree(fields, station), "agree");
}

void HwtestTest::rtcLinesRefused_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("another month name") << QByteArray("Thu Mai  1 08:00:00 2026\n");
    QTest::newRow("another layout") << QByteArray("2026-01-01 08:00:00.000000+08:00\n");
    QTest::newRow("ends before the year") << QByteArray("Thu Jan  1 08:00:00 20");
}

void HwtestTest::rtcLinesRefused()
{
    QFETCH(QByteArray, line);
    ClockFields fields;
    QVERIFY(!fieldsOfRtcLine(line, &fields));
}

void HwtestTest::dateTakesOneArgument_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("argument");
    QTest::newRow("a time") << QByteArray(":008D5859233112xx26") << QByteArray("123123592026.58");
    QTest::newRow("blanks and quotes")
        << QByteArray(":008D' \" \" $(`;xx\\ ") << QByteArray("`;$(\" \" 20\\ .' ");
}

void HwtestTest::dateTakesOneArgument()
{
    QFETCH(QByteArray, request);
    const QByteArray argument = dateArgument(request.constData());
    QTEST(argument, "argument");
    // The brackets stand once an argument.
    QCOMPARE(runProgram("printf", {"[%s]", QString::fromLatin1(argument)}), '[' + argument + ']');
}

void HwtestTest::adc_data()
{
    QTest::addColumn<int>("channel");
    QTest::addColumn<int>("raw");
    QTest::addColumn<double>("value");
    QTest::newRow("5 V") << 4 << 3731 << 5001.0;
    QTest::newRow("3.3 V") << 5 << 3693 << 3300.0;
    QTest::newRow("battery, 983.67 mV at the pin count as 983") << 6 << 2201 << 2949.0;
    QTest::newRow("battery, one step more") << 6 << 2202 << 2952.0;
    QTest::newRow("full scale") << 6 << 4095 << 5490.0;
    // 600 mV make r = 1, so the temperature is 1023630 / 3435 - 275.5.
    QTest::newRow("thermistor, 25 degrees on the chip") << 7 << 1343 << 22.5;
    QTest::newRow("thermistor, 915 mV") << 7 << 2048 << 4.831976164653;
    QTest::newRow("thermistor of another channel") << 0 << 1343 << 22.5;
}

void HwtestTest::adc()
{
    QFETCH(int, channel);
    QFETCH(int, raw);
    QFETCH(double, value);
    QVERIFY2(qAbs(adcValue(channel, raw) - value) < 1e-9,
             qPrintable(QString::number(adcValue(channel, raw), 'g', 12)));
}

void HwtestTest::valueFrames_data()
{
    QTest::addColumn<QByteArray>("station");
    QTest::addColumn<double>("mV");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("units are dropped") << QByteArray("00") << 3287.0 << QByteArray(":000328D5\r\n");
    QTest::newRow("with a station") << QByteArray("1F") << 2949.9 << QByteArray(":1F02944B\r\n");
    QTest::newRow("flat") << QByteArray("00") << 0.0 << QByteArray(":00000000\r\n");
}

void HwtestTest::valueFrames()
{
    QFETCH(QByteArray, station);
    QFETCH(double, mV);
    QTEST(valueFrame(station, mV), "frame");
}

void HwtestTest::ids_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("ownStation");
    QTest::addColumn<QByteArray>("asNumber"); // the ID; a null one is a refused frame
    QTest::addColumn<QByteArray>("asText");
    const QByteArray refused, hostile("';`\" $(x)&|\\n");
    const auto row = [&](const char *name, const QByteArray &frame, const QByteArray &ownStation,
                         const QByteArray &asNumber, const QByteArray &asText) {
        QTest::newRow(name) << frame << ownStation << asNumber << asText;
    };
    const auto sameForBoth = [&](const char *name, const QByteArray &frame,
                                 const QByteArray &ownStation,
                                 const QByteArray &id) { row(name, frame, ownStation, id, id); };
    sameForBoth("to every panel", ":000601KLV07ABCW00123420C\r\n", "", "KLV07ABCW0012342");
    sameForBoth("empty ID", ":000602D8\r\n", "", "");
    sameForBoth("quotes and other shell words", ":000602" + hostile + "7B\r\n", "", hostile);
    sameForBoth("to this station", ":0A0602SEMI-0001774\r\n", "0A", "SEMI-00017");
    sameForBoth("to another station", ":0A0602SEMI-0001774\r\n", "0B", refused);
    sameForBoth("to a station before there is one", ":0A0602SEMI-0001774\r\n", "", refused);
    row("station in lower case", ":0a0602SEMI-0001754\r\n", "0A", "SEMI-00017", refused);
    sameForBoth("LRC in lower case", ":000601KLV07ABCW00123420c\r\n", "", refused);
    sameForBoth("LRC over hexadecimal pairs", ":000602F8\r\n", "", refused);
    sameForBoth("no line end", ":000601KLV07ABCW00123420C\r\r", "", refused);
    sameForBoth("no start", ";000602D8\r\n", "", refused);
    sameForBoth("too short for an ID frame", ":00060D\r\n", "", refused);
}

void HwtestTest::ids()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, ownStation);
    QFETCH(QByteArray, asNumber);
    QFETCH(QByteArray, asText);
    QByteArray id, sameId;
    QCOMPARE(takeId(frame, ownStation, StationMatch::AsNumber, &id), !asNumber.isNull());
    QCOMPARE(takeId(frame, ownStation, StationMatch::AsText, &sameId), !asText.isNull());
    QCOMPARE(id, asNumber);
    QCOMPARE(sameId, asText);
    QCOMPARE(idFrame("0701", "KLV07ABCW0012342"), QByteArray(":000701KLV07ABCW00123420B\r\n"));
}

void HwtestTest::factories_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("factory");
    QTest::newRow("ninth character W") << QByteArray("12345678W0") << 0 << 1;
    QTest::newRow("ninth character T") << QByteArray("12345678TW345678") << 0 << 2;
    QTest::newRow("17 characters still by the ninth") << QByteArray("12345678WT1234567") << 0 << 1;
    QTest::newRow("18 characters by the tenth") << QByteArray("12345678WT12345678") << 0 << 2;
    QTest::newRow("19 characters by the ninth") << QByteArray("12345678WT123456789") << 0 << 1;
    QTest::newRow("another marker") << QByteArray("12345678w0") << 1 << 0;
    QTest::newRow("nine characters tell nothing") << QByteArray("12345678W") << 2 << 2;
}

void HwtestTest::factories()
{
    QFETCH(QByteArray, id);
    QFETCH(int, before);
    g_FactoryInfo = before;
    classifyFactory(id);
    QTEST(g_FactoryInfo, "factory");
}

void HwtestTest::stationInMachineId_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("station");
    QTest::newRow("decimal to hexadecimal")
        << QByteArray(":000601KLV07ABCW00123420C\r\n") << QByteArray("2A");
    QTest::newRow("00 is 100") << QByteArray(":000601KLV07ABCW00123400DE\r\n") << QByteArray("64");
    QTest::newRow("leading zero is not octal")
        << QByteArray(":000601W09xx\r\n") << QByteArray("09");
}

void HwtestTest::stationInMachineId()
{
    QFETCH(QByteArray, frame);
    QTEST(stationOfIdFrame(frame), "station");
}

QTEST_GUILESS_MAIN(HwtestTest)
#include "tst_hwtest.moc"
