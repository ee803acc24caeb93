#include "store/handin.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/console.h"
#include "store/store.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>

QCommandLineOption storeOption()
{
    return {"store",
            "Store of all runs: an SQLite file, or postgresql://USER@HOST/NAME. Else units.sqlite "
            "in the folder of the reports.",
            "store"};
}

QString storeOf(const QCommandLineParser &parser)
{
    return parser.isSet("store") ? parser.value("store") : parser.value("report") + "/units.sqlite";
}

// Each store has a folder of its own, so that runs are not handed in to another: the same from
// whichever folder a file is named.
static QString waitingFolder(const QString &where, const QString &base)
{
    const QString whole = where.startsWith("postgres")
        ? Store::nameOf(where)
        : QDir::cleanPath(QFileInfo(where).absoluteFilePath());
    QString name = QFileInfo(whole).fileName().left(40); // for people; the hash tells them apart
    name.replace(QRegularExpression("[^\\w.-]+"), "-");
    const auto hash = QCryptographicHash::hash(whole.toUtf8(), QCryptographicHash::Sha256).toHex();
    return base + "/waiting/" + name + '-' + hash.left(8);
}

// Files become runs a transaction at a time: neither one each, which is slow, nor all in memory.
static int handIn(const QString &where, const QStringList &files, bool remove)
{
    constexpr int atOnce = 200;
    int added = 0;
    Store store(where);
    for (int begin = 0; begin < files.size(); begin += atOnce) {
        QVector<QJsonObject> records;
        QStringList done;
        for (const QString &file : files.mid(begin, atOnce)) {
            try {
                const QJsonObject record = readJson(file);
                if (record["format"].toInt() != 1 || !record["ended"].toString().contains('T'))
                    throw BenchError(file + ": no record of a run that has ended; left out");
                records << record;
                done << file;
            } catch (const BenchError &wrong) {
                if (!remove || QFile::exists(file)) // else another station has handed it in
                    say(wrong.what(), true);
            }
        }
        added += store.add(records);
        for (const QString &file : remove ? done : QStringList())
            QFile::remove(file);
        if (files.size() > atOnce)
            say(QString("%1 of %2").arg(qMin(begin + atOnce, files.size())).arg(files.size()));
    }
    return added;
}

static QStringList jsonFiles(const QString &folder)
{
    QStringList files;
    QDirIterator all(folder, {"*.json"}, QDir::Files, QDirIterator::Subdirectories);
    while (all.hasNext())
        files << all.next();
    return files;
}

int handInWaiting(const QString &where, const QString &base)
{
    return handIn(where, jsonFiles(waitingFolder(where, base)), true);
}

int handIn(const QString &where, const QStringList &paths)
{
    QStringList files;
    for (const QString &path : paths)
        files += QFileInfo(path).isDir() ? jsonFiles(path) : QStringList(path);
    return handIn(where, files, false);
}

void storeRuns(const QMap<QString, QJsonObject> &records, const QString &where, const QString &base)
{
    const QString folder = waitingFolder(where, base);
    const auto keep = [&folder](const QJsonObject &record) {
        QDir().mkpath(folder);
        return replaceFile(folder + '/' + Store::keyOf(record) + ".json",
                           QJsonDocument(record).toJson());
    };
    bool kept = false;
    for (const QString &report : records.keys()) { // first, lest it be lost with this process
        QJsonObject record = records[report];
        record["folder"] = QFileInfo(report).absoluteFilePath();
        QString problem = keep(record);
        if (!problem.isEmpty()) // another station may have taken away the folder, empty
            problem = keep(record);
        if (problem.isEmpty())
            kept = true;
        else
            say(QString("%1; this run is not in the store. Hand it in later: bench units "
                        "--hand-in %2/report.json")
                    .arg(problem, report),
                true);
    }
    try {
        handInWaiting(where, base);
        QDir().rmdir(folder);
        QDir().rmdir(base + "/waiting"); // unless other stores' runs are in it
    } catch (const BenchError &away) {
        const QString later =
            QString("\nThe run waits in %1 and goes in with the next one, or by `bench units "
                    "--hand-in --store %2 --report %3`")
                .arg(folder, Store::nameOf(where), base);
        say(away.what() + (kept ? later : QString()), true);
    }
}
