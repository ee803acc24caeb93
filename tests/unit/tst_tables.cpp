// Invariants of the tables that everything else is looked up in.
#include "ict/commandtables.h"
#include "ict/levelflow.h"
#include "itemnames.h"
#include "state/itemrecord.h"
#include "state/levels.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

class TablesTest : public QObject {
    Q_OBJECT

private slots:
    void aFrameFindsAtMostOneHandler();
    void levelsHoldTogether();
    void itemLinesFitTheirRecords();
    void levelFileTexts();
};

void TablesTest::aFrameFindsAtMostOneHandler()
{
    static const QRegularExpression code("^[0-9A-F]{4}$");
    for (quint32 level : {0u, 1u, 2u, 3u, 4u, 253u, 254u, 255u}) {
        QSet<QByteArray> seen;
        for (const CommandTable &table : commandTables(level)) {
            for (const Command &command : table) {
                QVERIFY2(!seen.contains(command.code), command.code);
                QVERIFY2(code.match(command.code).hasMatch(), command.code);
                QVERIFY2((command.plain == nullptr) != (command.withArgument == nullptr),
                         command.code);
                seen.insert(command.code);
            }
        }
    }
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
    }
    QCOMPARE(wireCodes, QByteArray("04010203"));
    QCOMPARE(path, QByteArray("ICT\nT1 \nBI \nT2 \n"));
}

void TablesTest::itemLinesFitTheirRecords()
{
    const QStringList names[] = {ictItems, t1Items, biItems, t2Items};
    for (const Level &level : levels) {
        const QStringList &items = names[&level - levels];
        QCOMPARE(level.itemCount, items.size());
        for (int i = 0; i < level.itemCount; ++i) {
            QVERIFY(level.notPassed[i].size() < FlagRecordCr);
            QCOMPARE(level.notPassed[i], items[i] + ": 0");
            QCOMPARE(level.passed[i], items[i] + ": 1");
        }
    }
}

void TablesTest::levelFileTexts()
{
    QCOMPARE(levelOfFileText(""), LevelICT); // after a forced change to nowhere
    QCOMPARE(levelOfFileText("HMI\n"), LevelICT); // a released panel
    QCOMPARE(levelOfFileText("T"), LevelICT);
    QCOMPARE(levelOfFileText("T1 \n"), LevelT1);
    QCOMPARE(levelOfFileText("BI"), LevelBI);
    QCOMPARE(levelOfFileText("T2xyz"), LevelT2);
}

QTEST_APPLESS_MAIN(TablesTest)
#include "tst_tables.moc"
