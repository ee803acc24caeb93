#include "panel/agentpanel.h"
#include "state/teststate.h"
#include "station/codec.h"

#include <QPainter>

// What the operator sees in ICT mode, pixel by pixel: nothing missing, nothing left over.
class TstIctScreen : public QObject {
    Q_OBJECT

private slots:
    void ict();
    void t1();
    void bi();
    void t2();
};

namespace {

// A screen as it must be.
class Expected {
public:
    Expected()
    {
        constexpr int screenDpi = 60; // of the toolkit's VNC screen
        image_.setDotsPerMeterX(qRound(screenDpi / 0.0254));
        image_.setDotsPerMeterY(image_.dotsPerMeterX());
        image_.fill(Qt::white);
        painter_.begin(&image_);
    }
    Expected &text(int x, int y, const QString &text, int points, const QColor &pen)
    {
        painter_.setFont(QFont("Ubuntu", points));
        painter_.setPen(pen);
        painter_.drawText(x, y, text);
        return *this;
    }
    // Results one character an item: blue if passed, red while running and failed, black if not
    // run since the boot.
    Expected &items(const QString *lines, const QByteArray &results)
    {
        for (int i = 0; i < results.size(); ++i) {
            const bool passed = results[i] == '1';
            text(40, 60 + 18 * i, lines[i].chopped(1) + (passed ? '1' : '0'), 14,
                 passed                  ? Qt::blue
                     : results[i] == 'F' ? Qt::red
                                         : Qt::black);
        }
        return *this;
    }
    Expected &traffic(const QString &received, const QString &returned)
    {
        return text(300, 100, "[HMI Receive Data]", 20, Qt::magenta)
            .text(300, 150, received, 20, Qt::magenta)
            .text(300, 220, "[Return PC Data]", 20, Qt::blue)
            .text(300, 270, returned, 20, Qt::blue);
    }
    Expected &fill(int x, int y, int width, int height, const QColor &colour)
    {
        painter_.fillRect(x, y, width, height, colour);
        return *this;
    }
    Expected &corners()
    {
        for (const QPoint &at : {QPoint(8, 8), QPoint(760, 440)})
            fill(at.x(), at.y(), 32, 32, Qt::black)
                .fill(at.x() + 14, at.y() + 8, 4, 16, Qt::white)
                .fill(at.x() + 8, at.y() + 14, 16, 4, Qt::white);
        return *this;
    }
    // Pixels that differ by more than the toolkit's cache of glyphs makes them.
    int difference(VirtualPanel &panel) const
    {
        const QImage screen = panel.screen().grab();
        int count = 0;
        for (int y = 0; y < image_.height(); ++y) {
            for (int x = 0; x < image_.width(); ++x) {
                const QColor a = image_.pixelColor(x, y), b = colourAt(screen, x, y);
                count += qMax(qAbs(a.red() - b.red()),
                              qMax(qAbs(a.green() - b.green()), qAbs(a.blue() - b.blue())))
                    > 16;
            }
        }
        return count;
    }

private:
    QImage image_{800, 480, QImage::Format_RGB32};
    QPainter painter_;
};

} // namespace

void TstIctScreen::ict()
{
    AgentPanel at;
    QVERIFY(at.boot("ICT"));
    QCOMPARE(at.fixture.setFault("com1-485:silent"), QString());
    QCOMPARE(at.ask(requestFrame("8000")), requestFrame("8000"));
    QCOMPARE(at.ask(requestFrame("8102")), requestFrame("81F2"));
    Expected screen;
    screen.text(40, 30, "===== Ostra HMI KLV-100 ICT Test =====", 18, QColor(128, 0, 0))
        .items(ICT_Item_UnPASS, "0001F00000000000")
        .traffic(":0081027D", ":0081F28D");
    QTRY_COMPARE(screen.difference(at.panel), 0);
}

void TstIctScreen::t1()
{
    AgentPanel at;
    at.panel.writeFile(at.ict("HMI_T1_TEST_Flag.txt"),
                       QByteArray("1" + QByteArray(61, '\0') + "\r\n").repeated(19));
    QVERIFY(at.boot("T1"));
    // The line of the clock comparison is gone with the next request, that of the end check stays,
    // after a colour too.
    const QDateTime yesterday = QDateTime::currentDateTimeUtc().addDays(-1);
    QCOMPARE(at.ask(clockRequest("8E", yesterday)), requestFrame("8EF0"));
    for (const bool end : {false, true}) {
        if (end)
            QCOMPARE(at.ask(":9510FF8000"), requestFrame("9510"));
        const QByteArray request = requestFrame(end ? "0101" : "8000"),
                         reply = requestFrame(end ? "01FF" : "8000");
        QCOMPARE(at.ask(request), reply);
        Expected screen;
        screen.text(40, 30, "      Ostra HMI KLV-100 T1 Test =====", 18, Qt::red)
            .items(T1_Item_UnPASS, QByteArray(18, '1') + (end ? 'F' : '1'))
            .corners()
            .traffic(request.chopped(2), reply.chopped(2));
        if (end)
            screen.text(300, 338, "O Power on/off", 14, Qt::blue)
                .text(300, 356, "X RTC Check", 14, Qt::red);
        QTRY_COMPARE(screen.difference(at.panel), 0);
    }
}

void TstIctScreen::bi()
{
    AgentPanel at;
    at.panel.writeFile(at.ict("HMI_STATION_NUM.txt"), "1F");
    QVERIFY(at.boot("BI"));
    const QByteArray request = requestFrame("8500", "1F");
    QCOMPARE(at.ask(request), request);
    QCOMPARE(at.ask(requestFrame("9505", "1F")), requestFrame("9505", "1F"));
    at.panel.setAttribute(attribute::pressure, "37");
    QCOMPARE(at.ask(requestFrame("9003", "1F")), requestFrame("90F3", "1F"));
    Expected screen;
    screen.text(40, 30, "===== Ostra HMI KLV-100 BI Test =====", 18, Qt::magenta)
        .text(510, 30, "SN:(31)", 18, Qt::blue)
        .items(BI_Item_UnPASS, "010F00")
        .traffic(requestFrame("9003", "1F").chopped(2), requestFrame("90F3", "1F").chopped(2))
        .text(300, 320, "TP_Pressure : 37", 14, Qt::blue);
    QTRY_COMPARE(screen.difference(at.panel), 0);
}

void TstIctScreen::t2()
{
    AgentPanel at;
    QVERIFY(at.boot("T2"));
    QCOMPARE(at.ask(requestFrame("9507")), requestFrame("9507"));
    Expected bands;
    bands.fill(0, 0, 265, 480, Qt::red).fill(265, 0, 265, 480, Qt::green);
    bands.fill(530, 0, 270, 480, Qt::blue);
    QTRY_COMPARE(bands.difference(at.panel), 0);
    // The request that brings the list back need not be one that is obeyed.
    QCOMPARE(at.ask("KLV-101-01\n", 18), QByteArray("FORCIBLY_GOTO_FAIL"));
    Expected screen;
    screen.text(40, 30, "      Ostra HMI KLV-100 T2 Test =====", 18, Qt::blue)
        .items(T2_Item_UnPASS, "00000001000000000")
        .corners()
        .traffic("KLV-101-01", "FORCIBLY_GOTO_FAIL");
    QTRY_COMPARE(screen.difference(at.panel), 0);
}

QTEST_MAIN(TstIctScreen)
#include "tst_ictscreen.moc"
