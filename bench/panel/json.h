#pragma once

#include <QJsonObject>
#include <QStringList>

// A file's bytes. Throws BenchError when it cannot be read.
QByteArray readFile(const QString &path);
// The object in a JSON file. Throws BenchError, with file and line, when there is none.
QJsonObject readJson(const QString &path);
// The texts in a list.
inline QStringList textsOf(const QJsonValue &list)
{
    return list.toVariant().toStringList();
}
