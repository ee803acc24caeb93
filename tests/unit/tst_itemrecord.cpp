// Results in the flag file, sound and damaged: what is written where, and what a boot reads of it.
#include "state/itemrecord.h"
#include "state/teststate.h"

#include <QTemporaryFile>
#include <QTest>

class ItemRecordTest : public QObject {
    Q_OBJECT

private slots:
    void results_data();
    void results();
    void reading_data();
    void reading();
};

static QByteArray record(const QByteArray &line)
{
    return line + QByteArray(62 - line.size(), '\0') + "\r\n";
}

void ItemRecordTest::results_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("place"); // of the one byte that changes, -1: none
    QTest::addColumn<char>("written");
    const auto row = [](const char *name, const QByteArray &file, int index, int value, int place,
                        char written) {
        QTest::newRow(name) << file << index << value << place << written;
    };
    const QByteArray first = record("1. Read HMI Model: 0"),
                     longest = record("10.Write SemiMachineID: 0"), file = first + longest + first;
    row("passed", file, 1, 1, 64 + 24, '1');
    row("running", file, 1, -1, 64 + 24, 'F');
    row("not passed", file, 1, 0, 64 + 24, 'F');
    row("any other value", file, 0, 2, 19, 'F');
    row("passed after a failure", record("1. 5V: F"), 0, 1, 7, '1');
    row("before the first", file, -1, 1, -1, 0);
    row("behind the last", file, 3, 1, -1, 0);
    row("empty record", first + QByteArray(64, '\0'), 1, 1, -1, 0);
    row("cut in its text", first + "10.Wri", 1, 1, -1, 0);
    row("cut before its line end", first + longest.left(62), 1, 1, -1, 0);
    row("empty file", "", 0, 1, -1, 0);
}

void ItemRecordTest::results()
{
    QFETCH(QByteArray, file);
    QFETCH(int, index);
    QFETCH(int, value);
    QFETCH(int, place);
    QFETCH(char, written);
    QTemporaryFile flags("/tmp/flags-XXXXXX"); // as short as a panel's
    QVERIFY(flags.open() && flags.write(file) == file.size() && flags.flush());
    qstrncpy(g_HMI_TEST_File, qPrintable(flags.fileName()), sizeof g_HMI_TEST_File);
    memcpy(Test_Ret_Char, "F1", 2);
    recordItem(index, value);
    if (place >= 0)
        file[place] = written;
    flags.seek(0);
    QCOMPARE(flags.readAll(), file);
}

void ItemRecordTest::reading_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<bool>("passed");
    QTest::newRow("passed") << record("1. Read HMI Model: 1") << true;
    QTest::newRow("failed") << record("1. Read HMI Model: F") << false;
    QTest::newRow("new") << record("1. Read HMI Model: 0") << false;
    QTest::newRow("empty") << QByteArray(64, '\0') << false;
    // Names and numbers of items end in '1' too.
    QTest::newRow("cut in its number") << QByteArray("1") << false;
    QTest::newRow("cut in its name") << QByteArray("4. COM1") << false;
    QTest::newRow("missing") << QByteArray() << false;
}

void ItemRecordTest::reading()
{
    QFETCH(QByteArray, record);
    QTEST(isPassed(record), "passed");
}

QTEST_GUILESS_MAIN(ItemRecordTest)
#include "tst_itemrecord.moc"
