// What each request does to a panel, against the texts of tests/effects.
#include "effects/session.h"
#include "panel/bencherror.h"

#include <QDir>
#include <QtTest>

class TestEffects : public QObject {
    Q_OBJECT

private slots:
    void compare_data()
    {
        QTest::addColumn<QString>("file");
        const QDir folder(QFINDTESTDATA("../effects"));
        for (const QString &file : folder.entryList({"*.txt"}))
            QTest::newRow(qPrintable(file.section('.', 0, 0))) << folder.filePath(file);
    }
    void compare()
    {
        QFETCH(QString, file);
        int different = 0;
        EffectSession session;
        for (const EffectSection &section : readEffects(file)) {
            const QString difference = effectDifference(section.effects, session.run(section));
            different += !difference.isEmpty();
            if (!difference.isEmpty())
                fprintf(stderr, "\n%s:%d: %s\n%s", qPrintable(file), section.line,
                        qPrintable(section.title), qPrintable(difference));
        }
        QVERIFY2(!different, "the agent does something else, see above");
    }
};

QTEST_GUILESS_MAIN(TestEffects)
#include "tst_effects.moc"
