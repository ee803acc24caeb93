#include "station/report.h"

#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/console.h"

#include <QBuffer>
#include <QDir>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

using Files = QMap<QString, QByteArray>; // contents by name

static Files screensOf(const Report &report)
{
    Files pngs;
    for (auto screen = report.screens.begin(); screen != report.screens.end(); ++screen) {
        QBuffer buffer(&pngs[screen.key()]);
        buffer.open(QIODevice::WriteOnly);
        screen.value().save(&buffer, "PNG");
    }
    return pngs;
}

QByteArray pageOf(const QString &name, const QJsonDocument &data)
{
    const QString folder = dataFolder() + "/bench/report/";
    QByteArray json = data.toJson(QJsonDocument::Compact);
    // The data last, which may hold anything.
    return readFile(folder + name)
        .replace("@COMMON@", readFile(folder + "common.js"))
        .replace("@DATA@", json.replace('<', "\\u003c"));
}

// The page with the records, their screens in them.
static QByteArray pageOf(const QVector<Report> &reports)
{
    QJsonArray records;
    for (const Report &report : reports) {
        QJsonObject record = recordOf(report), images;
        const Files pngs = screensOf(report);
        for (auto png = pngs.begin(); png != pngs.end(); ++png)
            images[png.key()] = QString(png.value().toBase64());
        record["images"] = images;
        records << record;
    }
    return pageOf("page.html", QJsonDocument(records));
}

static QByteArray junitOf(const QByteArray &record)
{
    QProcess jq;
    jq.start("jq", {"--raw-output", "--from-file", dataFolder() + "/bench/report/junit.jq"});
    jq.write(record);
    jq.closeWriteChannel();
    if (!jq.waitForFinished() || jq.exitCode() != 0)
        throw BenchError("junit.xml: jq: " + jq.errorString() + jq.readAllStandardError());
    return jq.readAllStandardOutput();
}

// Empty, or what went wrong.
static QString write(const Files &files, const QString &folder)
{
    if (!QDir().mkpath(folder))
        return folder + " cannot be created";
    for (auto bytes = files.begin(); bytes != files.end(); ++bytes) {
        const QString problem = replaceFile(folder + '/' + bytes.key(), bytes.value());
        if (!problem.isEmpty())
            return problem;
    }
    return {};
}

static QString write(const Report &report, const QString &folder)
{
    const QByteArray record = QJsonDocument(recordOf(report)).toJson();
    Files files = screensOf(report);
    files["report.html"] = pageOf({report});
    files["report.json"] = record;
    files["junit.xml"] = junitOf(record);
    return write(files, folder);
}

// BASE/UNIT. An ID may hold anything: what it has of a path is taken away.
static QString unitFolder(const Report &report, const QString &base)
{
    const Values unit = report.unit();
    QString name = unit.value("machineId", unit.value("semiId", report.subject));
    name.replace(QRegularExpression("[^\\w.-]+"), "-").replace(QRegularExpression("^[.-]+"), "");
    return base + '/' + (name.isEmpty() ? "unknown" : name.left(80));
}

QString beginReport(const Report &report, const QString &base)
{
    const QString unit = unitFolder(report, base);
    const QString wanted = unit + '/' + report.begun.toString("yyyyMMdd-HHmmss");
    QString folder = wanted, problem;
    QDir().mkpath(unit);
    for (int more = 2; !QDir().mkdir(folder) && QFileInfo::exists(folder); ++more)
        folder = QString("%1-%2").arg(wanted).arg(more);
    problem = write(report, folder);
    if (!problem.isEmpty())
        throw BenchError(problem + "; choose another folder with --report");
    return folder;
}

QString writeReport(const Report &report, const QString &base, const QString &folder)
{
    const QString unit = unitFolder(report, base);
    QString place = folder;
    if (QFileInfo(folder).path() != unit && QDir().mkpath(unit)) {
        const QString known = unit + '/' + QFileInfo(folder).fileName();
        if (!QFileInfo::exists(known) && QDir().rename(folder, known)) {
            QDir().rmdir(QFileInfo(folder).path());
            place = known;
        }
    }
    const QString problem = write(report, place);
    if (problem.isEmpty())
        return place;
    QTemporaryDir last(QDir::tempPath() + "/bench-report-XXXXXX");
    const QString worse = write(report, last.path());
    if (!worse.isEmpty())
        throw BenchError(problem + "; " + worse);
    last.setAutoRemove(false);
    say(QString("%1; the report is in %2 instead").arg(problem, last.path()), true);
    return last.path();
}

QString writePage(const QVector<Report> &reports, const QString &file)
{
    return write(Files{{QFileInfo(file).fileName(), pageOf(reports)}}, QFileInfo(file).path());
}
