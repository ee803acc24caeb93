#include "panel/filewrite.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

QByteArray readWhole(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
