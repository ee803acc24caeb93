// Invariants of the tables that everything else is looked up in.
#include "ict/dispatcher.h"
#include "ict/levelflow.h"
#include "state/itemrecord.h"
#include "state/levels.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

class TablesTest : public QObject {
    Q_OBJECT

private slots:
    void aFrameFindsAtMostOneHandler_data();
    void aFrameFindsAtMostOneHandler();
    void levelsHoldTogether();
    void itemLinesFitTheirRecords();
    void levelFileTexts_data();
    void levelFileTexts();
};

static const quint32 allLevels[] = {LevelICT, LevelT1, LevelBI, LevelT2, LevelT1Check, 4, 254, 255};

void TablesTest::aFrameFindsAtMostOneHandler_data()
{
    QTest::addColumn<quint32>("level");
    QTest::addColumn<int>("codes"); // counted by hand from the protocol document
    const int counts[] = {29, 45, 16, 37, 23, 21, 21, 21};
    for (size_t i = 0; i < std::size(allLevels); ++i)
        QTest::addRow("level %u", allLevels[i]) << allLevels[i] << counts[i];
}

void TablesTest::aFrameFindsAtMostOneHandler()
{
    QFETCH(quint32, level);
    static const QRegularExpression code("^[0-9A-F]{4}$");
    QSet<QByteArray> seen;
    for (const CommandTable &table : commandTables(level)) {
        for (const Command &command : table) {
            QVERIFY2(!seen.contains(command.code), command.code);
            QVERIFY2(code.match(command.code).hasMatch(), command.code);
            QVERIFY2((command.plain == nullptr) != (command.withArgument == nullptr), command.code);
            seen.insert(command.code);
        }
    }
    QTEST(int(seen.size()), "codes");
}

void TablesTest::levelsHoldTogether()
{
    QByteArray wireCodes, path;
    for (int i = 0; i < LevelCount; ++i) {
        const Level &level = levels[i];
        wireCodes += level.wireCode;
        path += level.fileText;
        // Each level leads to the row after it, the last one out of the table.
        QCOMPARE(level.next, i + 1 < LevelCount ? levels[i + 1].fileText : HmiLevelText);
        // The end check of a level is its last item, and it is the level's own "00" command.
        const auto tables = commandTables(quint32(i));
        bool found = false;
        for (const CommandTable &table : tables) {
            for (const Command &command : table) {
                if (QByteArray(command.code) != QByteArray(level.wireCode) + "00")
                    continue;
                found = true;
                QCOMPARE(command.argument, level.itemCount - 1);
            }
        }
        QVERIFY(found);
        QVERIFY(level.notPassed[level.itemCount - 1].contains("END Check"));
    }
    QCOMPARE(wireCodes, QByteArray("04010203"));
    QCOMPARE(path, QByteArray("ICT\nT1 \nBI \nT2 \n"));
}

void TablesTest::itemLinesFitTheirRecords()
{
    for (const Level &level : levels) {
        for (int i = 0; i < level.itemCount; ++i) {
            const QString line = level.notPassed[i];
            QVERIFY2(line.startsWith(QString::number(i + 1) + '.'), qPrintable(line));
            // Items up to 9 carry a blank after the dot, later ones none: the columns on screen.
            QCOMPARE(line[line.indexOf('.') + 1] == ' ', i < 9);
            QVERIFY(line.size() < FlagRecordCr);
            QCOMPARE(line.left(line.size() - 1) + '1', level.passed[i]);
            QVERIFY2(line.endsWith(": 0"), qPrintable(line));
        }
    }
}

void TablesTest::levelFileTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<quint32>("level");
    QTest::newRow("empty after a forced change to nowhere") << QByteArray() << quint32(LevelICT);
    QTest::newRow("released panel") << QByteArray("HMI\n") << quint32(LevelICT);
    QTest::newRow("one letter") << QByteArray("T") << quint32(LevelICT);
    QTest::newRow("T1 padded") << QByteArray("T1 \n") << quint32(LevelT1);
    QTest::newRow("BI unpadded") << QByteArray("BI") << quint32(LevelBI);
    QTest::newRow("T2 with a tail") << QByteArray("T2xyz") << quint32(LevelT2);
}

void TablesTest::levelFileTexts()
{
    QFETCH(QByteArray, text);
    QTEST(quint32(levelOfFileText(text.constData())), "level");
}

QTEST_APPLESS_MAIN(TablesTest)
#include "tst_tables.moc"
