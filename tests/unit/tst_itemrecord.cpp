// Results in the flag file, sound and damaged: what is written where, and what a boot reads of it.
#include "state/itemrecord.h"
#include "state/teststate.h"
#include "system/files.h"

#include <QTemporaryFile>
#include <QTest>
#include <csignal>
#include <sys/resource.h>

class ItemRecordTest : public QObject {
    Q_OBJECT

private slots:
    void results();
    void reading();
    void smallFiles();
};

static QByteArray record(const QByteArray &line)
{
    return line + QByteArray(62 - line.size(), '\0') + "\r\n";
}

void ItemRecordTest::results()
{
    const QByteArray first = record("1. Read HMI Model: 0"),
                     longest = record("10.Write SemiMachineID: 0"), all = first + longest + first;
    const struct {
        const char *name;
        QByteArray file;
        int index, value;
        int place; // of the one byte that changes, -1: none
        char written;
    } rows[] = {
        {"passed", all, 1, 1, 64 + 24, '1'},
        {"running", all, 1, -1, 64 + 24, 'F'},
        {"not passed", all, 1, 0, 64 + 24, 'F'},
        {"any other value", all, 0, 2, 19, 'F'},
        {"passed after a failure", record("1. 5V: F"), 0, 1, 7, '1'},
        {"no zero byte", QByteArray(62, 'x') + "\r\n", 0, 1, 61, '1'},
        {"before the first", all, -1, 1, -1, 0},
        {"behind the last", all, 3, 1, -1, 0},
        {"empty record", first + QByteArray(64, '\0'), 1, 1, -1, 0},
        {"cut in its text", first + "10.Wri", 1, 1, -1, 0},
        {"cut before its line end", first + longest.left(62), 1, 1, -1, 0},
        {"empty file", "", 0, 1, -1, 0},
    };
    for (const auto &row : rows) {
        QByteArray file = row.file;
        QTemporaryFile flags("/tmp/flags-XXXXXX"); // as short as a panel's
        QVERIFY(flags.open() && flags.write(file) == file.size() && flags.flush());
        qstrncpy(g_HMI_TEST_File, qPrintable(flags.fileName()), sizeof g_HMI_TEST_File);
        memcpy(Test_Ret_Char, "F1", 2);
        recordItem(row.index, row.value);
        if (row.place >= 0)
            file[row.place] = row.written;
        flags.seek(0);
        QVERIFY2(flags.readAll() == file, row.name);
    }
}

void ItemRecordTest::reading()
{
    QVERIFY(isPassed(record("1. Read HMI Model: 1")));
    QVERIFY(!isPassed(record("1. Read HMI Model: F")));
    QVERIFY(!isPassed(record("1. Read HMI Model: 0")));
    QVERIFY(!isPassed(QByteArray(64, '\0')));
    QVERIFY(!isPassed("")); // there is none
    // Cut in its number or its name: those end in '1' too.
    QVERIFY(!isPassed("1"));
    QVERIFY(!isPassed("4. COM1"));
}

// Replaced whole, or as it was and reported: no write may grow the file while the limit stands.
void ItemRecordTest::smallFiles()
{
    QTemporaryFile file;
    QVERIFY(file.open() && file.write("20254711T12345678") > 0 && file.flush());
    const auto path = file.fileName().toLatin1();
    QVERIFY(writeFile(path.constData(), "2025"));
    QCOMPARE(readFile(path.constData(), 99), QByteArray("2025"));
    signal(SIGXFSZ, SIG_IGN);
    const rlimit none = {0, RLIM_INFINITY}, all = {RLIM_INFINITY, RLIM_INFINITY};
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &none), 0);
    const bool written = writeFile(path.constData(), "4711");
    setrlimit(RLIMIT_FSIZE, &all);
    QVERIFY(!written);
    QCOMPARE(readFile(path.constData(), 99), QByteArray("2025"));
    QVERIFY(!writeFile("/dev/full", "4711"));
}

QTEST_GUILESS_MAIN(ItemRecordTest)
#include "tst_itemrecord.moc"
