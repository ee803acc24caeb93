// The image's scripts, with their settings pointed at a folder of the test as a board builder would
// edit them.
#include "system/command.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class HwtestImageTest : public QObject {
    Q_OBJECT

private slots:
    void shellcheckIsClean();
    void archiveSurvivesACut();
    void archiveIsBroughtOrMissed();
};

static const QString imageFolder = QFINDTESTDATA("../../image");

// A board in a folder: a copy of the script of the logs' archive with settings of its own, and
// commands before the PATH's.
struct Board {
    Board()
    {
        QDir(path()).mkpath("logs");
        QDir(path()).mkpath("tools");
        QFile original(imageFolder + "/log_rdwr.sh");
        original.open(QIODevice::ReadOnly);
        QString text = original.readAll();
        const QMap<QString, QString> settings = {
            {"LOGS", "logs"}, {"STORE", "store"}, {"FETCHED", "fetched.tgz"}};
        for (auto it = settings.begin(); it != settings.end(); ++it)
            text.replace(
                QRegularExpression("^" + it.key() + "=\\S*", QRegularExpression::MultilineOption),
                it.key() + '=' + path(it.value()));
        write("log_rdwr.sh", text.toUtf8());
    }
    QString path(const QString &name = QString()) const
    {
        return folder.path() + '/' + name;
    }
    void write(const QString &name, const QByteArray &text) const
    {
        QFile file(path(name));
        file.open(QIODevice::WriteOnly);
        file.write(text);
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    int run(const QString &argument) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", path("tools") + ':' + environment.value("PATH"));
        process.setProcessEnvironment(environment);
        process.start("sh", {path("log_rdwr.sh"), argument});
        process.waitForFinished();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    // What tar lists and contains of the archive.
    QByteArray archived(const QString &archive) const
    {
        return runProgram("tar", {"xOf", path(archive)});
    }
    QTemporaryDir folder;
};

void HwtestImageTest::shellcheckIsClean()
{
    const QStringList scripts = QDir(imageFolder).entryList({"*.sh"});
    QVERIFY(scripts.contains("log_rdwr.sh"));
    for (const QString &script : scripts)
        QCOMPARE(runProgram("shellcheck", {"-s", "sh", imageFolder + '/' + script}), QByteArray());
}

void HwtestImageTest::archiveSurvivesACut()
{
    // While it is written, before it is on the medium, before it is renamed.
    for (const QString command : {"tar", "sync", "mv"}) {
        Board board;
        board.write("logs/a.txt", "old");
        QCOMPARE(board.run("-w"), 0);
        board.write("logs/a.txt", "new");
        // Leaves rubbish in the file it was to write, and takes the script down with it.
        board.write("tools/" + command,
                    "#!/bin/sh\ncase $0 in */tar) echo rubbish >$2 ;; esac\nkill -9 $PPID\n");
        QCOMPARE(board.run("-w"), -1);
        QFile::remove(board.path("tools/" + command));
        QCOMPARE(board.archived("store/ict_log.tgz"), QByteArray("old"));
        // The next power-on is none the worse for what was left.
        QCOMPARE(board.run("-w"), 0);
        QCOMPARE(board.archived("store/ict_log.tgz"), QByteArray("new"));
    }
}

void HwtestImageTest::archiveIsBroughtOrMissed()
{
    Board board;
    board.write("logs/a.txt", "log");
    board.write("logs/pointercal", "not a log");
    board.write("fetched.tgz", "of an earlier panel");
    QCOMPARE(board.run("-r"), 1);
    QVERIFY(!QFile::exists(board.path("fetched.tgz")));
    QCOMPARE(board.run("-w"), 0);
    // A store that cannot be opened.
    board.write("fetched.tgz", "of an earlier panel");
    board.write("tools/mkdir", "#!/bin/sh\nexit 1\n");
    QCOMPARE(board.run("-r"), 1);
    QVERIFY(!QFile::exists(board.path("fetched.tgz")));
    QFile::remove(board.path("tools/mkdir"));
    QCOMPARE(board.run("-r"), 0);
    QCOMPARE(board.archived("fetched.tgz"), QByteArray("log"));
    // A full store: the archive stays, and what was begun does not take up room.
    board.write("tools/tar", "#!/bin/sh\necho rubbish >$2\nexit 1\n");
    QCOMPARE(board.run("-w"), 1);
    QCOMPARE(QDir(board.path("store")).entryList(QDir::Files), QStringList("ict_log.tgz"));
}

QTEST_GUILESS_MAIN(HwtestImageTest)
#include "tst_hwtest_image.moc"
