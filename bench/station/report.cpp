#include "station/report.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QXmlStreamWriter>

bool Report::passed() const
{
    return !levels.isEmpty() && faults().isEmpty();
}

QStringList Report::faults() const
{
    QStringList list;
    for (const LevelResult &level : levels) {
        for (const StepResult &result : level.steps)
            for (const QString &fault : result.faults)
                list << QString("%1, %2: %3").arg(level.level, result.step.name, fault);
        for (const QString &fault : level.faults)
            list << QString("%1: %2").arg(level.level, fault);
    }
    return list;
}

static QByteArray png(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

static QString itemName(const LevelResult &level, const StepResult &result)
{
    QStringList names;
    for (int item : result.step.items)
        names << level.items.value(item - 1);
    return names.join(", ");
}

static const char *const style =
    "body{font:15px sans-serif;margin:2em;max-width:75em}table{border-collapse:collapse;width:100%}"
    "td,th{border:1px solid #bbb;padding:3px 8px;text-align:left;vertical-align:top}"
    "code,pre{font:13px monospace}.bad{background:#fdd}.verdict{padding:.5em 1em;font-size:1.6em}"
    ".pass{background:#cfc}.fail{background:#fbb}figure{display:inline-block;margin:.5em}"
    "img{width:24em;border:1px solid #888}";

static QString stepRow(const LevelResult &level, const StepResult &result)
{
    const auto cell = [](const QString &text) { return "<td>" + text.toHtmlEscaped() + "</td>"; };
    const auto bytes = [](const QByteArray &text) {
        return "<td><code>" + printable(text).toHtmlEscaped() + "</code></td>";
    };
    return QString(result.faults.isEmpty() ? "<tr>" : "<tr class=bad>")
        + cell(itemName(level, result)) + cell(result.step.name) + bytes(result.request)
        + bytes(result.answer.bytes)
        + cell(QStringList(QStringList(result.meaning) + result.faults).join(" — "))
        + cell(QString::number(result.answer.ms, 'f', 1))
        + cell(QString::number(result.step.waitMs)) + cell(QString::number(result.answer.tries))
        + "</tr>\n";
}

static QString levelSection(const LevelResult &level)
{
    QString html =
        QString("<h2>%1: %2</h2>\n").arg(level.level, level.passed() ? "passed" : "FAILED");
    for (const QString &fault : level.faults)
        html += "<p class=bad>" + fault.toHtmlEscaped() + "</p>\n";
    html += "<table><tr><th>Item<th>Step<th>Request<th>Reply<th>Meaning<th>ms<th>prescribed ms<th>"
            "tries</tr>\n";
    for (const StepResult &result : level.steps)
        html += stepRow(level, result);
    html += QString("</table><p>Median overhead over the prescribed waits: %1 ms an item.</p>\n")
                .arg(level.medianOverheadMs(), 0, 'f', 1);
    for (auto screen = level.screens.begin(); screen != level.screens.end(); ++screen)
        html += QString("<figure><img src=\"data:image/png;base64,%1\"><figcaption>%2</figcaption>"
                        "</figure>\n")
                    .arg(QString(png(screen.value()).toBase64()), screen.key().toHtmlEscaped());
    if (!level.resumeLog.isEmpty())
        html += "<details><summary>The panel's own log</summary><pre>"
            + textOf(level.resumeLog).remove(QChar(0)).toHtmlEscaped() + "</pre></details>\n";
    return html;
}

static QByteArray htmlOf(const Report &report)
{
    QString html = QString("<!doctype html><meta charset=utf-8><title>%1</title><style>%2</style>\n"
                           "<h1>%1</h1><p class=\"verdict %3\">%4</p><p>%5, %6</p>\n")
                       .arg(report.title.toHtmlEscaped(), style, report.passed() ? "pass" : "fail",
                            report.passed() ? "PASSED" : "FAILED", report.subject.toHtmlEscaped(),
                            report.begun.toString(Qt::ISODate));
    for (const QString &fault : report.faults())
        html += "<p class=bad>" + fault.toHtmlEscaped() + "</p>\n";
    for (const LevelResult &level : report.levels)
        html += levelSection(level);
    return html.toUtf8();
}

static QJsonObject stepJson(const StepResult &result)
{
    QJsonArray items;
    for (int item : result.step.items)
        items << item;
    return {{"items", items},
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

static QByteArray jsonOf(const Report &report)
{
    QJsonArray levels;
    for (const LevelResult &level : report.levels) {
        QJsonArray steps;
        for (const StepResult &result : level.steps)
            steps << stepJson(result);
        levels << QJsonObject{{"level", level.level},
                              {"passed", level.passed()},
                              {"medianOverheadMs", level.medianOverheadMs()},
                              {"faults", QJsonArray::fromStringList(level.faults)},
                              {"screens", QJsonArray::fromStringList(level.screens.keys())},
                              {"steps", steps}};
    }
    return QJsonDocument(QJsonObject{{"title", report.title},
                                     {"subject", report.subject},
                                     {"begun", report.begun.toString(Qt::ISODate)},
                                     {"passed", report.passed()},
                                     {"levels", levels}})
        .toJson();
}

static void junitCase(QXmlStreamWriter &xml, const QString &level, const QString &name,
                      double seconds, const QStringList &faults)
{
    xml.writeStartElement("testcase");
    xml.writeAttribute("classname", level);
    xml.writeAttribute("name", name);
    xml.writeAttribute("time", QString::number(seconds, 'f', 3));
    if (!faults.isEmpty()) {
        xml.writeStartElement("failure");
        xml.writeAttribute("message", faults.first());
        xml.writeCharacters(faults.join('\n'));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

static QByteArray junitOf(const Report &report)
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    xml.writeAttribute("name", report.title);
    for (const LevelResult &level : report.levels) {
        int failures = !level.faults.isEmpty();
        for (const StepResult &result : level.steps)
            failures += !result.faults.isEmpty();
        xml.writeStartElement("testsuite");
        xml.writeAttribute("name", level.level);
        xml.writeAttribute("tests", QString::number(level.steps.size() + 1));
        xml.writeAttribute("failures", QString::number(failures));
        for (const StepResult &result : level.steps)
            junitCase(xml, level.level, result.step.name, result.answer.ms / 1000, result.faults);
        junitCase(xml, level.level, "panel's files", 0, level.faults);
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return bytes;
}

QString writeReport(const Report &report, const QString &folder)
{
    if (!QDir().mkpath(folder))
        return folder + ": cannot be created; choose another with --report";
    QString problem;
    const auto put = [&](const QString &name, const QByteArray &bytes) {
        QFile file(folder + '/' + name);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            problem = file.fileName() + ": " + file.errorString();
    };
    put("report.html", htmlOf(report));
    put("report.json", jsonOf(report));
    put("junit.xml", junitOf(report));
    for (const LevelResult &level : report.levels)
        for (auto screen = level.screens.begin(); screen != level.screens.end(); ++screen)
            put(QString("%1-%2.png").arg(level.level.toLower().replace(' ', '-'), screen.key()),
                png(screen.value()));
    return problem;
}
