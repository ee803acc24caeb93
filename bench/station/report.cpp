#include "station/report.h"

#include "panel/bencherror.h"
#include "panel/folders.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QXmlStreamWriter>

bool Report::passed() const
{
    return !levels.isEmpty() && faults().isEmpty();
}

QStringList Report::faults() const
{
    QStringList list;
    for (const LevelResult &level : levels) {
        for (const StepResult &result : level.steps) {
            for (const QString &fault : result.faults) {
                list << QString("%1, %2: %3").arg(level.level, result.step.name, fault);
            }
        }
        for (const QString &fault : level.faults) {
            list << QString("%1: %2").arg(level.level, fault);
        }
    }
    return list;
}

static QJsonObject stepRecord(const StepResult &result, const QStringList &items)
{
    QJsonArray numbers, names;
    for (int item : result.step.items) {
        numbers << item;
        names << items.value(item - 1);
    }
    return {{"items", numbers},
            {"itemNames", names},
            {"name", result.step.name},
            {"code", QString(result.step.code)},
            {"request", printable(result.request)},
            {"reply", printable(result.answer.bytes)},
            {"meaning", result.meaning},
            {"ms", result.answer.ms},
            {"prescribedMs", result.step.waitMs},
            {"tries", result.answer.tries},
            {"passed", result.faults.isEmpty()},
            {"faults", QJsonArray::fromStringList(result.faults)}};
}

// The screens by file name.
static QMap<QString, QImage> screensOf(const LevelResult &level)
{
    QMap<QString, QImage> screens;
    for (auto screen = level.screens.begin(); screen != level.screens.end(); ++screen) {
        const QString prefix = level.level.toLower().replace(' ', '-');
        screens[QString("%1-%2.png").arg(prefix, screen.key())] = screen.value();
    }
    return screens;
}

QJsonObject recordOf(const Report &report)
{
    QJsonArray levels;
    for (const LevelResult &level : report.levels) {
        QJsonArray steps;
        for (const StepResult &result : level.steps) {
            steps << stepRecord(result, level.items);
        }
        levels << QJsonObject{{"level", level.level},
                              {"passed", level.passed()},
                              {"medianOverheadMs", level.medianOverheadMs()},
                              {"faults", QJsonArray::fromStringList(level.faults)},
                              {"screens", QJsonArray::fromStringList(screensOf(level).keys())},
                              {"log", textOf(level.resumeLog).remove(QChar(0))},
                              {"steps", steps}};
    }
    return {{"title", report.title},
            {"subject", report.subject},
            {"begun", report.begun.toString(Qt::ISODate)},
            {"passed", report.passed()},
            {"faults", QJsonArray::fromStringList(report.faults())},
            {"levels", levels}};
}

// The page with the record and the screens in it. Between script tags nothing is escaped but "<".
static QByteArray pageOf(QJsonObject record, const QMap<QString, QByteArray> &pngs)
{
    QJsonObject images;
    for (auto png = pngs.begin(); png != pngs.end(); ++png) {
        images[png.key()] = QString(png.value().toBase64());
    }
    record["images"] = images;
    QFile file(dataFolder() + "/bench/report/page.html");
    if (!file.open(QIODevice::ReadOnly)) {
        throw BenchError(file.fileName() + " cannot be read: " + file.errorString());
    }
    QByteArray json = QJsonDocument(record).toJson(QJsonDocument::Compact);
    return file.readAll().replace("@RECORD@", json.replace('<', "\\u003c"));
}

static void writeCase(QXmlStreamWriter &xml, const QString &level, const QString &name,
                      double seconds, const QJsonArray &faults)
{
    xml.writeStartElement("testcase");
    xml.writeAttribute("classname", level);
    xml.writeAttribute("name", name);
    xml.writeAttribute("time", QString::number(seconds, 'f', 3));
    if (!faults.isEmpty()) {
        xml.writeStartElement("failure");
        xml.writeAttribute("message", faults[0].toString());
        xml.writeCharacters(QVariant(faults.toVariantList()).toStringList().join('\n'));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

static QByteArray junitOf(const QJsonObject &record)
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    xml.writeAttribute("name", record["title"].toString());
    for (const QJsonValue &level : record["levels"].toArray()) {
        const QJsonArray steps = level["steps"].toArray(), faults = level["faults"].toArray();
        int failures = !faults.isEmpty();
        for (const QJsonValue &step : steps) {
            failures += !step["passed"].toBool();
        }
        const QString name = level["level"].toString();
        xml.writeStartElement("testsuite");
        xml.writeAttribute("name", name);
        xml.writeAttribute("tests", QString::number(steps.size() + !faults.isEmpty()));
        xml.writeAttribute("failures", QString::number(failures));
        for (const QJsonValue &step : steps) {
            writeCase(xml, name, step["name"].toString(), step["ms"].toDouble() / 1000,
                      step["faults"].toArray());
        }
        if (!faults.isEmpty()) {
            writeCase(xml, name, "the panel as a whole", 0, faults);
        }
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return bytes;
}

// Empty, or what went wrong.
static QString write(const Report &report, const QString &folder)
{
    QMap<QString, QByteArray> files;
    for (const LevelResult &level : report.levels) {
        const QMap<QString, QImage> screens = screensOf(level);
        for (auto screen = screens.begin(); screen != screens.end(); ++screen) {
            QBuffer buffer(&files[screen.key()]);
            buffer.open(QIODevice::WriteOnly);
            screen.value().save(&buffer, "PNG");
        }
    }
    const QJsonObject record = recordOf(report);
    files["report.html"] = pageOf(record, files);
    files["report.json"] = QJsonDocument(record).toJson();
    files["junit.xml"] = junitOf(record);
    if (!QDir().mkpath(folder)) {
        return folder + " cannot be created";
    }
    for (auto bytes = files.begin(); bytes != files.end(); ++bytes) {
        QFile file(folder + '/' + bytes.key());
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes.value()) != bytes.value().size()
            || !file.flush()) {
            return file.fileName() + ": " + file.errorString();
        }
    }
    return {};
}

void beginReport(const Report &report, const QString &folder)
{
    Report begun = report;
    begun.title += " (not ended)";
    const QString problem = write(begun, folder);
    if (!problem.isEmpty()) {
        throw BenchError(problem + "; choose another folder with --report");
    }
}

QString writeReport(const Report &report, const QString &folder)
{
    const QString problem = write(report, folder);
    if (problem.isEmpty()) {
        return folder;
    }
    QTemporaryDir last(QDir::tempPath() + "/bench-report-XXXXXX");
    last.setAutoRemove(false);
    const QString worse = write(report, last.path());
    if (!worse.isEmpty()) {
        throw BenchError(problem + "; " + worse);
    }
    say(QString("%1; the report is in %2 instead").arg(problem, last.path()), true);
    return last.path();
}
