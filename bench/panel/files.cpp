#include "panel/files.h"
#include "panel/bencherror.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static QString installedOr(const QString &installed, const QString &built)
{
    const QString program = QFileInfo("/proc/self/exe").canonicalPath();
    const QString folder = QFileInfo(program + installed).canonicalFilePath();
    return folder.isEmpty() ? built : folder;
}

QString dataFolder()
{
    return installedOr("/../share/ict-bench", BENCH_SOURCE_DIR);
}

QString sharedFile(const QString &path)
{
    return dataFolder() + '/' + path;
}

QString programFolder()
{
    return installedOr("/../lib/ict-bench", BENCH_BUILD_DIR);
}

QByteArray readWhole(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw BenchError(QString("%1 cannot be read: %2").arg(path, file.errorString()));
    return file.readAll();
}

QJsonObject readJson(const QString &path)
{
    const QByteArray text = readFile(path);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (document.isObject())
        return document.object();
    throw BenchError(QString("%1:%2: %3")
                         .arg(path)
                         .arg(text.left(error.offset).count('\n') + 1)
                         .arg(error.error ? error.errorString() : "no object"));
}

QString replaceFile(const QString &path, const QByteArray &content)
{
    QSaveFile file(path);
    // commit() alone does not notice that the rest of its buffer found no place.
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush()
        || !file.commit())
        return path + ": " + qt_error_string(errno); // Qt does not know them all
    return {};
}

bool writeInPlace(const QString &path, QByteArray content)
{
    const int fd = ::open(QFile::encodeName(path), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    struct stat now;
    if (fstat(fd, &now) == 0 && now.st_size > content.size())
        content.append(QByteArray(int(now.st_size) - content.size(), '\n'));
    const bool written =
        ::pwrite(fd, content.constData(), size_t(content.size()), 0) == content.size();
    ::close(fd);
    return written;
}
