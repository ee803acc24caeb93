#pragma once

#include <QByteArray>
#include <QString>

// The file's content, empty if it cannot be read.
QByteArray readWhole(const QString &path);

// Replaces the file's content with one write, creating the file if it is missing; false if it
// cannot. The file never gets shorter and is never empty between: a shorter text is filled up with
// line feeds, which neither atoi nor a reader of the first line sees.
bool writeInPlace(const QString &path, QByteArray content);
