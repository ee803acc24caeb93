#include "panel/json.h"
#include "station/report.h"

#include <QJsonArray>
#include <QXmlStreamWriter>

static void begin(QXmlStreamWriter &xml, const char *element,
                  const QVector<QPair<const char *, QString>> &attributes)
{
    xml.writeStartElement(element);
    for (const auto &[name, value] : attributes) {
        xml.writeAttribute(name, value);
    }
}

static QString seconds(double ms)
{
    return QString::number(ms / 1000, 'f', 3);
}

static void writeCase(QXmlStreamWriter &xml, const QString &level, const QJsonObject &step)
{
    const QStringList faults = textsOf(step["faults"]);
    begin(xml, "testcase",
          {{"classname", level},
           {"name", step["name"].toString()},
           {"time", seconds(step["ms"].toDouble())}});
    if (!faults.isEmpty()) {
        begin(xml, "failure", {{"type", "failure"}, {"message", faults[0]}});
        xml.writeCharacters(faults.join('\n'));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

static void writeSuite(QXmlStreamWriter &xml, const QJsonObject &record, int id)
{
    const QJsonValue level = record["levels"][id];
    const QString name = level["level"].toString();
    QJsonArray cases = level["steps"].toArray();
    if (!level["faults"].toArray().isEmpty()) {
        cases << QJsonObject{{"name", "the panel as a whole"}, {"faults", level["faults"]}};
    }
    int failures = 0;
    double ms = 0;
    for (const QJsonValue &one : cases) {
        failures += !one["faults"].toArray().isEmpty();
        ms += one["ms"].toDouble();
    }
    begin(xml, "testsuite",
          {{"id", QString::number(id)},
           {"package", "bench"},
           {"name", name},
           {"timestamp", record["begun"].toString().left(19)},
           {"hostname", record["host"].toString()},
           {"tests", QString::number(cases.size())},
           {"failures", QString::number(failures)},
           {"errors", "0"}, // a fault of the bench itself leaves no verdict
           {"time", seconds(ms)}});
    begin(xml, "properties", {});
    const QJsonObject unit = record["unit"].toObject();
    for (const QString &key : unit.keys()) {
        begin(xml, "property", {{"name", key}, {"value", unit[key].toString()}});
        xml.writeEndElement();
    }
    xml.writeEndElement();
    for (const QJsonValue &one : cases) {
        writeCase(xml, name, one.toObject());
    }
    xml.writeEmptyElement("system-out");
    xml.writeEmptyElement("system-err");
    xml.writeEndElement();
}

QByteArray junitOf(const QJsonObject &record)
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    for (int id = 0; id < record["levels"].toArray().size(); ++id) {
        writeSuite(xml, record, id);
    }
    xml.writeEndDocument();
    return bytes;
}
