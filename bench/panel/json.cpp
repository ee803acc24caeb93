#include "panel/json.h"

#include "panel/bencherror.h"

#include <QFile>
#include <QJsonDocument>

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw BenchError(QString("%1 cannot be read: %2").arg(path, file.errorString()));
    }
    return file.readAll();
}

QJsonObject readJson(const QString &path)
{
    const QByteArray text = readFile(path);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (!document.isObject()) {
        throw BenchError(QString("%1:%2: %3")
                             .arg(path)
                             .arg(text.left(error.offset).count('\n') + 1)
                             .arg(error.error ? error.errorString() : "no object"));
    }
    return document.object();
}
