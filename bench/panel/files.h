#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QStringList>

// Where the bench finds what it needs at run time: in the package that the running program was
// installed from, else in the checkout that it was built in.

// The data, laid out as the source tree: bench/plans, bench/panel/skeleton, image.
QString dataFolder();
// A file or folder of it, by its path in the source tree.
QString sharedFile(const QString &path);
// The programs ict-agent and bench-window.
QString programFolder();

// The file's content, empty if it cannot be read.
QByteArray readWhole(const QString &path);
// The same. Throws BenchError when it cannot be read.
QByteArray readFile(const QString &path);
// The object in a JSON file. Throws BenchError, with file and line, when there is none.
QJsonObject readJson(const QString &path);
// The texts in a list.
inline QStringList textsOf(const QJsonValue &list)
{
    return list.toVariant().toStringList();
}

// Writes a file that is either whole or as it was before; empty, or what went wrong and where.
QString replaceFile(const QString &path, const QByteArray &content);
// Replaces the file's content with one write, creating the file if it is missing; false if it
// cannot. The file never gets shorter and is never empty between: a shorter text is filled up with
// line feeds, which neither atoi nor a reader of the first line sees.
bool writeInPlace(const QString &path, QByteArray content);
