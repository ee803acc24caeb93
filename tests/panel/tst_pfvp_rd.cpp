#include "panel/urgency.h"
#include "panelharness.h"
#include "pfvpharness.h"

#include <atomic>
#include <thread>

// The RD window of a panel without a peer.
class TstPfvpRd : public QObject {
    Q_OBJECT

private slots:
    void init();
    void automatic();
    void manual();

private:
    QColor background()
    {
        return colourAt(panel_->screen().grab(20000), 790, 10);
    }

    std::unique_ptr<VirtualPanel> panel_;
    std::unique_ptr<PfvpOperator> person_;
};

namespace {

const char sramDevice[] = "/dev/OstraHMI_GPMC_RW";
constexpr int sramSize = 32768;

// A memory cell that does not keep what is written into it.
class StuckCell {
public:
    StuckCell(const QString &path, int place, uchar value)
        : file_(path)
    {
        if (!file_.open(QIODevice::ReadWrite))
            qFatal("no SRAM to break");
        uchar *const cell = file_.map(0, sramSize) + place;
        thread_ = std::thread([=] {
            runBeforeAllElse(); // the agent looks at the cell milliseconds after it has written it
            while (!done_) {
                *static_cast<volatile uchar *>(cell) = value;
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        });
    }
    ~StuckCell()
    {
        done_ = true;
        thread_.join();
    }

private:
    QFile file_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

} // namespace

void TstPfvpRd::init()
{
    panel_ = std::make_unique<VirtualPanel>();
    person_ = std::make_unique<PfvpOperator>(*panel_);
    panel_->powerOn({"PFVP_RD"});
    QVERIFY2(person_->sees("Auto Start"), panel_->errorOutput());
    QCOMPARE(text(person_->counts(PfvpTable::Rd)), textOfAll(17, "0/0"));
    const QString bar(20, '=');
    const auto texts = tableTexts(10, 150, selfTestItems.mid(0, 10))
        + tableTexts(410, 560, selfTestItems.mid(10))
        + QVector<ScreenText>{{{10, 40}, bar + " PFVP RD Test Case " + bar, 18, QColor(128, 0, 0)}};
    QCOMPARE(missingOn(panel_->screen().grab(), texts), QStringList());
}

void TstPfvpRd::automatic()
{
    QByteArray contents(sramSize, '\0');
    for (int i = 0; i < sramSize; ++i)
        contents[i] = char(i * 7 + i / 256);
    panel_->writeFile(sramDevice, contents);
    panel_->clock().setRtcFault(1);
    panel_->setAttribute(attribute::voltage(4), "3545"); // lowest and highest that pass: 4752 mV,
    panel_->setAttribute(attribute::voltage(5), "3877"); // 3464,
    panel_->setAttribute(attribute::voltage(6), "4095"); // any
    const auto oneCycle = [this] {
        return cycle(*person_, PfvpTable::Rd, 11, "Auto Start", "Auto Stop");
    };
    const QByteArray neverTried(6, '-');
    QCOMPARE(oneCycle(), "ppppfffffpp" + neverTried);
    QCOMPARE(panel_->readFile(sramDevice), contents);

    const StuckCell cell(panel_->hostPath(sramDevice), 1, 0x5A);
    panel_->toolPrints("chk_ddr.sh", "0000000\n");
    panel_->setAttribute(attribute::voltage(4), "3919"); // 5253 mV
    panel_->setAttribute(attribute::voltage(5), "3508"); // 3134
    panel_->setAttribute(attribute::voltage(6), "2201"); // 2949
    panel_->clock().setRtcFault(-2);
    QCOMPARE(oneCycle(), "fffffffffff" + neverTried);
    // The pattern is left in a memory that failed: 00, FF, FE, ...
    QByteArray pattern(sramSize, '\0');
    for (int i = 0; i < sramSize; ++i)
        pattern[i] = char(255 - (i + 255) % 256);
    pattern[1] = 0x5A;
    QCOMPARE(panel_->readFile(sramDevice).toHex(), pattern.toHex());

    QVERIFY(person_->press("Auto Start"));
    QVERIFY(person_->sees("Auto Stop"));
    QCOMPARE(person_->buttons({"Manua Start", "Reset Test", "END Test"}), QStringList());
    QVERIFY(person_->press("Auto Stop", CycleMs));
    QVERIFY(person_->press("END Test", CycleMs));
    QVERIFY(person_->sees("Sure!! END"));
    QVERIFY(person_->sees("Manua Start"));
    QVERIFY(person_->press("Reset Test"));
    QVERIFY(person_->sees("Sure!! Reset"));
    QVERIFY(person_->sees("END Test")); // relabelled, but still armed
    QVERIFY(person_->counts(PfvpTable::Rd)[0].pass > 0);
    QVERIFY(person_->press("Sure!! Reset"));
    QVERIFY(person_->sees("Reset Test"));
    QCOMPARE(text(person_->counts(PfvpTable::Rd)), textOfAll(17, "0/0"));
    QVERIFY(person_->press("END Test"));
    QCOMPARE(panel_->waitForExit(DeadlineMs), 0);
}

void TstPfvpRd::manual()
{
    QVERIFY(person_->press("Manua Start", CycleMs));
    QVERIFY(person_->sees("Not Show Red"));
    QCOMPARE(background(), QColor(Qt::red));
    QCOMPARE(person_->buttons({"Auto Start", "Reset Test", "END Test", "Manual Stop"}),
             QStringList());
    QVERIFY(person_->press("Not Show Red"));
    QVERIFY(person_->sees("Not Show Green"));
    QCOMPARE(background(), QColor(Qt::green));
    QVERIFY(person_->press("Show Green"));
    QVERIFY(person_->sees("Not Show Blue"));
    QCOMPARE(background(), QColor(Qt::blue));
    QVERIFY(person_->press("Show Blue"));

    QVERIFY(person_->sees("Test BackLight"));
    QCOMPARE(background(), QColor(Qt::white));
    QCOMPARE(colourAt(panel_->screen().grab(), 640, 300), QColor(Qt::white)); // no FAIL
    QVERIFY(person_->press("Test BackLight"));
    QVERIFY(person_->sees("BackLight FAIL"));
    QVERIFY(person_->press("BackLight PASS"));
    QVERIFY(person_->press("Buzzer FAIL"));

    QVERIFY(person_->sees("Manual Stop")); // as it stays until Reset or END
    QCOMPARE(person_->buttons({"Buzzer PASS", "Auto Start", "Reset Test", "END Test"}),
             QStringList({"Auto Start", "Reset Test", "END Test"}));
    QCOMPARE(text(person_->counts(PfvpTable::Rd).mid(11)), QByteArray("0/1 1/0 1/0 1/0 1/0 0/1"));
}

QTEST_MAIN(TstPfvpRd)
#include "tst_pfvp_rd.moc"
