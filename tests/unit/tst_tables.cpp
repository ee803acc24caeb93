// Invariants of the tables that everything else is looked up in.
#include "ict/commandtables.h"
#include "ict/levelflow.h"
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
    const QMap<quint32, int> codes = {// counted by hand from the protocol document
                                      {LevelICT, 29}, {LevelT1, 45},      {LevelBI, 16},
                                      {LevelT2, 37},  {LevelT1Check, 23}, {4, 21},
                                      {254, 21},      {255, 21}};
    static const QRegularExpression code("^[0-9A-F]{4}$");
    for (auto level = codes.begin(); level != codes.end(); ++level) {
        QSet<QByteArray> seen;
        for (const CommandTable &table : commandTables(level.key())) {
            for (const Command &command : table) {
                QVERIFY2(!seen.contains(command.code), command.code);
                QVERIFY2(code.match(command.code).hasMatch(), command.code);
                QVERIFY2((command.plain == nullptr) != (command.withArgument == nullptr),
                         command.code);
                seen.insert(command.code);
            }
        }
        QVERIFY2(seen.size() == level.value(), QByteArray::number(level.key()));
    }
}

void TablesTest::levelsHoldTogether()
{
    QByteArray wireCodes, path;
    QStringList lastItems;
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
        lastItems << level.notPassed[level.itemCount - 1];
    }
    QCOMPARE(wireCodes, QByteArray("04010203"));
    QCOMPARE(path, QByteArray("ICT\nT1 \nBI \nT2 \n"));
    QCOMPARE(lastItems,
             QStringList({"16.ICT Test END Check: 0", "19.T1 Test END Check: 0",
                          "6. BI Test END Check: 0", "17.T2 Test END Check: 0"}));
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
