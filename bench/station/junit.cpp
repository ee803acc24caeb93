#include "station/report.h"

#include <QJsonArray>
#include <QXmlStreamWriter>

static void writeCase(QXmlStreamWriter &xml, const QString &level, const QString &name,
                      double seconds, const QJsonArray &faults)
{
    xml.writeStartElement("testcase");
    xml.writeAttribute("classname", level);
    xml.writeAttribute("name", name);
    xml.writeAttribute("time", QString::number(seconds, 'f', 3));
    if (!faults.isEmpty()) {
        xml.writeStartElement("failure");
        xml.writeAttribute("type", "failure");
        xml.writeAttribute("message", faults[0].toString());
        xml.writeCharacters(QVariant(faults.toVariantList()).toStringList().join('\n'));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

static void writeSuite(QXmlStreamWriter &xml, const QJsonObject &record, int id)
{
    const QJsonValue level = record["levels"].toArray()[id];
    const QJsonArray steps = level["steps"].toArray(), faults = level["faults"].toArray();
    const QString name = level["level"].toString();
    int failures = !faults.isEmpty();
    double seconds = 0;
    for (const QJsonValue &step : steps) {
        failures += !step["passed"].toBool();
        seconds += step["ms"].toDouble() / 1000;
    }
    const QVector<QPair<const char *, QString>> attributes = {
        {"id", QString::number(id)},
        {"package", "bench"},
        {"name", name},
        {"timestamp", record["begun"].toString().left(19)},
        {"hostname", record["host"].toString()},
        {"tests", QString::number(steps.size() + !faults.isEmpty())},
        {"failures", QString::number(failures)},
        {"errors", "0"}, // a fault of the bench itself leaves no verdict
        {"time", QString::number(seconds, 'f', 3)}};
    xml.writeStartElement("testsuite");
    for (const auto &[attribute, value] : attributes) {
        xml.writeAttribute(attribute, value);
    }
    xml.writeStartElement("properties");
    const QJsonObject unit = record["unit"].toObject();
    for (const QString &key : unit.keys()) {
        xml.writeEmptyElement("property");
        xml.writeAttribute("name", key);
        xml.writeAttribute("value", unit[key].toString());
    }
    xml.writeEndElement();
    for (const QJsonValue &step : steps) {
        writeCase(xml, name, step["name"].toString(), step["ms"].toDouble() / 1000,
                  step["faults"].toArray());
    }
    if (!faults.isEmpty()) {
        writeCase(xml, name, "the panel as a whole", 0, faults);
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
