#include "panelharness.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// The verdict of `bench produce` must follow the panel: right panels pass, and one wrong thing
// fails the run at its own step and at no other.
class TestProduce : public QObject {
    Q_OBJECT
private slots:
    void verdict();
    void interrupted();
    void driverIsLeft();
};

void TestProduce::verdict()
{
    const struct {
        QStringList arguments;
        QStringList failing; // steps that fail, in order
        int levels; // that the panel gets to
    } rows[] = {
        {{}, {}, 4},
        {{"--fault", "nand-crc"}, {"image CRC", "image CRC", "image CRC"}, 4},
        {{"--fault", "model:KLV-999"}, {"panel model", "forced change to T1"}, 1},
    };
    for (const auto &[arguments, failing, levels] : rows) {
        QTemporaryDir folder;
        QProcess bench;
        bench.start(QT_TESTCASE_BUILDDIR "/bench",
                    QStringList{"produce", "--tour", "--report", folder.filePath("out")}
                        + arguments);
        QVERIFY(bench.waitForFinished(280000));
        const QByteArray said = bench.readAll();
        QVERIFY(QFile::exists(folder.filePath("out/report.html")));
        const QDir unit(folder.filePath("out/third-panel"));
        QCOMPARE(unit.entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 1);
        const QString place = unit.filePath(unit.entryList(QDir::Dirs | QDir::NoDotAndDotDot)[0]);
        QFile file(place + "/report.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject report = QJsonDocument::fromJson(file.readAll()).object();
        QCOMPARE(report["passed"].toBool(), failing.isEmpty());
        QCOMPARE(report["unit"]["version"].toString(), QString("A.0123.120"));
        QCOMPARE(report["levels"][0]["planHash"].toString().size(), 64);
        QStringList failed;
        for (const QJsonValue &level : report["levels"].toArray())
            for (const QJsonValue &step : level["steps"].toArray())
                if (!step["passed"].toBool())
                    failed << step["name"].toString();
        if (failed != failing)
            fputs(said.constData(), stderr); // longer than a test's own message may be
        QCOMPARE(failed, failing);
        QCOMPARE(bench.exitCode(), failing.isEmpty() ? 0 : 1);
        QCOMPARE(report["levels"].toArray().size(), levels);
        for (const QString &level : QStringList{"ict", "t1", "bi", "t2"}.mid(0, levels))
            QCOMPARE(QImage(place + QString("/%1-%1.png").arg(level)).size(), QSize(800, 480));
    }
}

// Ctrl-C in the middle of a test is no failure of the bench, and leaves no panel and no folder
// behind.
void TestProduce::interrupted()
{
    QTemporaryDir folder;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", folder.path());
    for (const QStringList &command :
         {QStringList{"produce", "--report", folder.filePath("out")}, QStringList{"pfvp", "ems"}}) {
        QProcess bench;
        bench.setProcessEnvironment(environment);
        bench.start(QT_TESTCASE_BUILDDIR "/bench", command);
        QVERIFY(bench.waitForStarted());
        QTRY_VERIFY(!QDir(folder.path()).entryList({"ict-panel-*"}).isEmpty());
        QTRY_VERIFY(bench.bytesAvailable() > 30); // produce has begun with a level, pfvp boots
        bench.terminate();
        QVERIFY(bench.waitForFinished(DeadlineMs));
        QCOMPARE(bench.exitCode(), 1);
        QVERIFY(QDir(folder.path()).entryList({"ict-panel-*"}).isEmpty());
    }
    for (const QString &pid : QDir("/proc").entryList({"[0-9]*"})) {
        QFile line(QString("/proc/%1/cmdline").arg(pid));
        if (line.open(QIODevice::ReadOnly))
            QVERIFY2(!line.readAll().contains(folder.path().toLatin1()), qPrintable(pid));
    }
}

// What drives a panel for a program ends with it, however that ends.
void TestProduce::driverIsLeft()
{
    QProcess bench;
    bench.start(QT_TESTCASE_BUILDDIR "/bench", {"drive"});
    bench.write("on\nruns\n"); // answered one after the other
    QByteArray said;
    const auto isAnswered = [&] {
        bench.waitForReadyRead(1000);
        return (said += bench.readAll()).endsWith("yes\n");
    };
    QVERIFY(bench.waitForStarted() && waitFor(isAnswered, DeadlineMs));
    QVERIFY2(said.endsWith("/root/\nok\nyes\n"), said);
    bench.write("answer 600000\n");
    QVERIFY(bench.waitForBytesWritten());
    QTest::qWait(300); // then it waits
    bench.terminate();
    bench.closeWriteChannel();
    QVERIFY(bench.waitForFinished(DeadlineMs));
}

QTEST_MAIN(TestProduce)
#include "tst_produce.moc"
