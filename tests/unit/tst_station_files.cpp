#include "station/panelfiles.h"

#include <QTemporaryDir>
#include <QtTest>

// The judge of a panel's files must accept what a right panel writes and find every single wrong
// byte.
class TestStationFiles : public QObject {
    Q_OBJECT
private slots:
    void judges();
};

static QByteArray padded(const QByteArray &text, int size)
{
    return text + QByteArray(size - text.size(), '\0');
}

// A burn-in panel of two items after: start, DDR passed, end check failed.
static QMap<QString, QByteArray> rightFiles()
{
    const QByteArray flags = padded("1. LCD Color Test: 0", 62) + "\r\n"
        + padded("2. DDR Test: 1", 62) + "\r\n" + padded("3. BI Test END Check: F", 62) + "\r\n";
    const QByteArray date = "Thu Jan  1 00:00:07 UTC 2015\n";
    return {{"HMI_TEST_LEVEL.txt", "BI \n"},
            {"HMI_BI_TEST_Flag.txt", flags},
            {"HMI_STATION_NUM.txt", "00"},
            {"HMI_Factory_Resume.txt",
             "==================== Test Start ====================\nICT\n" + date
                 + "++++++++ Receive Forcibly Goto Command ++++++++\n"
                   "QZ! ===== Forcibly Goto BI Pass!! =====\n"
                   "==================== Test Start ====================\nBI \n"
                 + date + date + flags + "===================== Test End =====================\n"},
            {"FactoryTestLog.txt",
             padded("2015-01-01 00:00:07\nBoot up at ICT\n\n", 100)
                 + padded("2015-01-01 00:00:08\n---> KLV-1-02\r\n<--- FORCIBLY_GOTO_BI_PASS\n", 100)
                 + padded("2015-01-01 00:00:09\nBoot up at BI\n\n", 100)},
            {"HMI_ICT_TEST_Flag.txt", padded("1. Read HMI Model: 0", 62) + "\r\n"}};
}

static StepResult exchange(const QByteArray &code, int item, const QByteArray &request,
                           const QByteArray &answer)
{
    StepResult result;
    result.step.code = code;
    result.step.items << item;
    result.request = request;
    result.answer.bytes = answer;
    result.reply = decode(answer);
    return result;
}

void TestStationFiles::judges()
{
    const struct {
        const char *name;
        QString file;
        int byte; // flipped; -1: none, -2: file removed, -3: a byte too many
    } rows[] = {
        {"all right", "", -1},
        {"level", "HMI_TEST_LEVEL.txt", 2},
        {"item result", "HMI_BI_TEST_Flag.txt", 64 + 13},
        {"padding of a record", "HMI_BI_TEST_Flag.txt", 61},
        {"line end of a record", "HMI_BI_TEST_Flag.txt", 62},
        {"flags of another level", "HMI_ICT_TEST_Flag.txt", 0},
        {"banner", "HMI_Factory_Resume.txt", 3},
        {"no date", "HMI_Factory_Resume.txt", 53 + 4 + 13},
        {"log without date", "FactoryTestLog.txt", 4},
        {"logged reply", "FactoryTestLog.txt", 145},
        {"log padding", "FactoryTestLog.txt", 199},
        {"log cut", "FactoryTestLog.txt", -2},
        {"log record too long", "FactoryTestLog.txt", -3},
        {"flags missing", "HMI_BI_TEST_Flag.txt", -2},
        {"level file too long", "HMI_TEST_LEVEL.txt", -3},
        {"station number", "HMI_STATION_NUM.txt", 1},
    };
    for (const auto &row : rows) {
        QTemporaryDir folder;
        PanelFiles files(folder.path(),
                         {{"1. Read HMI Model"},
                          {},
                          {"1. LCD Color Test", "2. DDR Test", "3. BI Test END Check"},
                          {}});
        files.booted();
        StepResult change = exchange("KLV-", 0, "KLV-1-02\r\n", "FORCIBLY_GOTO_BI_PASS");
        change.step.argument = "BI";
        files.exchanged(change);
        files.booted();
        files.exchanged(exchange("8500", 2, ":0085007B\r\n", ":0085007B\r\n"));
        files.exchanged(exchange("0200", 3, ":000200FE\r\n", ":0002F00E\r\n"));
        QMap<QString, QByteArray> all = rightFiles();
        if (row.byte >= 0)
            all[row.file][row.byte] = all[row.file][row.byte] ^ 1;
        else if (row.byte == -2)
            all.remove(row.file);
        else if (row.byte == -3)
            all[row.file] += 'x';
        for (auto it = all.begin(); it != all.end(); ++it) {
            QFile out(folder.filePath(it.key()));
            QVERIFY(out.open(QIODevice::WriteOnly));
            out.write(it.value());
        }
        const QString faults = files.faults(0).join('\n');
        QVERIFY2(row.byte == -1 ? faults.isEmpty() : faults.contains(row.file),
                 qPrintable(row.name + (": " + faults)));
    }
}

QTEST_GUILESS_MAIN(TestStationFiles)
#include "tst_station_files.moc"
