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

static const char state[] =
    "# What is left of a burn-in panel\n"
    "[/logs/*.txt]\nFactory.txt\nFlags.txt\nLevel.txt\nResume.txt\n\n"
    "[/logs/Level.txt]\nBI \\n\n"
    "[/logs/Flags.txt records 64]\n2. DDR Test: 1\\0\\r\\n\n"
    "[/logs/Resume.txt new]\nReceived\\n\n${old}\\n\n1: ${id}\\0*3\\n\n"
    "[/logs/Factory.txt new records 100]\n${old}\\nBoot at ${id}\\n\\n\\0\n";

static QMap<QString, QByteArray> rightFiles()
{
    return {{"Level.txt", "BI \n"},
            {"Flags.txt", padded("2. DDR Test: 1", 62) + "\r\n"},
            {"Resume.txt",
             QByteArray("Before\nReceived\nThu Jan  1 00:00:07 UTC 2015\n1: A\0\0\0\n", 53)},
            {"Factory.txt",
             padded("2015-01-01 00:00:07\nBefore\n\n", 100)
                 + padded("2015-01-01 00:00:08\nBoot at A\n\n", 100)}};
}

static void put(const QTemporaryDir &folder, const QString &name, const QByteArray &content)
{
    QFile file(folder.filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

static const struct {
    const char *name;
    QString file;
    int byte; // flipped; -1: none, -2: file removed, -3: a byte too many
} damages[] = {
    {"all right", "", -1},
    {"level", "Level.txt", 2},
    {"item result", "Flags.txt", 13},
    {"padding of a record", "Flags.txt", 61},
    {"line end of a record", "Flags.txt", 62},
    {"line", "Resume.txt", 9},
    {"earlier part", "Resume.txt", 1},
    {"no date", "Resume.txt", 16 + 13},
    {"zeros in a log", "Resume.txt", 50},
    {"log without date", "Factory.txt", 104},
    {"another value than before", "Factory.txt", 128},
    {"log padding", "Factory.txt", 199},
    {"log cut", "Factory.txt", -2},
    {"log record too long", "Factory.txt", -3},
    {"flags missing", "Flags.txt", -2},
    {"level file too long", "Level.txt", -3},
    {"what does not belong there", "Another.txt", -3},
};

void TestStationFiles::judges()
{
    for (const auto &row : damages) {
        QTemporaryDir folder;
        QVERIFY(QDir(folder.path()).mkdir("logs"));
        PanelFiles files(folder.path());
        put(folder, "before",
            "[/logs/Resume.txt new]\nBefore\\n\n[/logs/Factory.txt new records 100]"
            "\n${any}\n");
        put(folder, "state", state);
        QMap<QString, QByteArray> all = rightFiles();
        put(folder, "logs/Resume.txt", all["Resume.txt"].left(7));
        put(folder, "logs/Factory.txt", all["Factory.txt"].left(100));
        QCOMPARE(files.differences(folder.filePath("before"), 0), QStringList());
        if (row.byte >= 0)
            all[row.file][row.byte] = all[row.file][row.byte] ^ 1;
        else if (row.byte == -3)
            all[row.file] += 'x';
        for (auto it = all.begin(); it != all.end(); ++it)
            put(folder, "logs/" + it.key(), it.value());
        if (row.byte == -2)
            QVERIFY(QFile::remove(folder.filePath("logs/" + row.file)));
        const QString faults = files.differences(folder.filePath("state"), 0).join('\n');
        const QString wanted = row.file == "Another.txt" ? "/logs/*" : row.file;
        QVERIFY2(row.byte == -1 ? faults.isEmpty() : faults.contains(wanted),
                 qPrintable(row.name + (": " + faults)));
    }
}

QTEST_GUILESS_MAIN(TestStationFiles)
#include "tst_station_files.moc"
