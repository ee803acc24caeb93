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
    void archiveSurvivesACut_data();
    void archiveSurvivesACut();
    void archiveIsBroughtOrMissed();
    void usbRoles();
};

static const QString imageFolder = QFINDTESTDATA("../../image");

// A board in a folder: a copy of a script with settings of its own, and commands before the PATH's.
struct Board {
    Board()
    {
        QDir(path()).mkpath("logs");
        QDir(path()).mkpath("tools");
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
    QByteArray read(const QString &name) const
    {
        QFile file(path(name));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }
    void install(const QString &script, const QMap<QString, QString> &settings) const
    {
        QFile original(imageFolder + '/' + script);
        original.open(QIODevice::ReadOnly);
        QString text = original.readAll();
        for (auto it = settings.begin(); it != settings.end(); ++it)
            text.replace(
                QRegularExpression("^" + it.key() + "=\\S*", QRegularExpression::MultilineOption),
                it.key() + '=' + path(it.value()));
        write(script, text.toUtf8());
    }
    int run(const QString &script, const QString &argument) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", path("tools") + ':' + environment.value("PATH"));
        process.setProcessEnvironment(environment);
        process.start("sh", {path(script), argument});
        process.waitForFinished();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    QTemporaryDir folder;
};

static void installArchiver(const Board &board)
{
    board.install("log_rdwr.sh",
                  {{"LOGS", "logs"}, {"STORE", "store"}, {"FETCHED", "fetched.tgz"}});
}

// What tar lists and contains of the archive.
static QByteArray archived(const Board &board, const QString &archive)
{
    return runProgram("tar", {"xOf", board.path(archive)});
}

void HwtestImageTest::shellcheckIsClean()
{
    const QStringList scripts = QDir(imageFolder).entryList({"*.sh"});
    QVERIFY(scripts.contains("log_rdwr.sh"));
    for (const QString &script : scripts)
        QCOMPARE(runProgram("shellcheck", {"-s", "sh", imageFolder + '/' + script}), QByteArray());
}

void HwtestImageTest::archiveSurvivesACut_data()
{
    QTest::addColumn<QString>("command"); // that the power fails in
    QTest::newRow("while it is written") << "tar";
    QTest::newRow("before it is on the medium") << "sync";
    QTest::newRow("before it is renamed") << "mv";
}

void HwtestImageTest::archiveSurvivesACut()
{
    QFETCH(QString, command);
    Board board;
    installArchiver(board);
    board.write("logs/a.txt", "old");
    QCOMPARE(board.run("log_rdwr.sh", "-w"), 0);
    board.write("logs/a.txt", "new");
    // Leaves rubbish in the file it was to write, and takes the script down with it.
    board.write("tools/" + command,
                "#!/bin/sh\ncase $0 in */tar) echo rubbish >$2 ;; esac\nkill -9 $PPID\n");
    QCOMPARE(board.run("log_rdwr.sh", "-w"), -1);
    QFile::remove(board.path("tools/" + command));
    QCOMPARE(archived(board, "store/ict_log.tgz"), QByteArray("old"));
    // The next power-on is none the worse for what was left.
    QCOMPARE(board.run("log_rdwr.sh", "-w"), 0);
    QCOMPARE(archived(board, "store/ict_log.tgz"), QByteArray("new"));
}

void HwtestImageTest::archiveIsBroughtOrMissed()
{
    Board board;
    installArchiver(board);
    board.write("logs/a.txt", "log");
    board.write("logs/pointercal", "not a log");
    board.write("fetched.tgz", "of an earlier panel");
    QCOMPARE(board.run("log_rdwr.sh", "-r"), 1);
    QVERIFY(!QFile::exists(board.path("fetched.tgz")));
    QCOMPARE(board.run("log_rdwr.sh", "-w"), 0);
    QCOMPARE(board.run("log_rdwr.sh", "-r"), 0);
    QCOMPARE(archived(board, "fetched.tgz"), QByteArray("log"));
    // A full store: the archive stays, and what was begun does not take up room.
    board.write("tools/tar", "#!/bin/sh\necho rubbish >$2\nexit 1\n");
    QCOMPARE(board.run("log_rdwr.sh", "-w"), 1);
    QCOMPARE(QDir(board.path("store")).entryList(QDir::Files), QStringList("ict_log.tgz"));
}

void HwtestImageTest::usbRoles()
{
    Board board;
    board.install("usb_mode.sh", {{"SWITCH", "role"}});
    QCOMPARE(board.run("usb_mode.sh", "4"), 0);
    QCOMPARE(board.read("role"), QByteArray("host\n"));
    QCOMPARE(board.run("usb_mode.sh", "1"), 0);
    QCOMPARE(board.read("role"), QByteArray("device\n"));
    QCOMPARE(board.run("usb_mode.sh", "2"), 1);
    QCOMPARE(board.read("role"), QByteArray("device\n"));
}

QTEST_GUILESS_MAIN(HwtestImageTest)
#include "tst_hwtest_image.moc"
