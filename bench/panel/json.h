#pragma once

#include <QJsonObject>
#include <QString>

// A file's bytes. Throws BenchError when it cannot be read.
QByteArray readFile(const QString &path);
// The object in a JSON file. Throws BenchError, with file and line, when there is none.
QJsonObject readJson(const QString &path);
