#pragma once

#include <QJsonObject>
#include <QString>

// The object in a JSON file. Throws BenchError, with file and line, when there is none.
QJsonObject readJson(const QString &path);
