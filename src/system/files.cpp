#include "files.h"

#include <fcntl.h>
#include <unistd.h>

File::File(const char *path, int flags)
    : m_fd(open(path, flags | O_CLOEXEC, NewFileMode))
{
}

File::~File()
{
    if (isOpen())
        close(m_fd);
}

bool File::write(const char *bytes, qint64 length)
{
    while (length > 0) {
        const ssize_t written = ::write(m_fd, bytes, size_t(length));
        if (written <= 0)
            return false;
        bytes += written;
        length -= written;
    }
    return true;
}

qint64 File::read(char *bytes, qint64 length)
{
    qint64 total = 0;
    while (total < length) {
        const ssize_t got = ::read(m_fd, bytes + total, size_t(length - total));
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        total += got;
    }
    return total;
}

bool File::replaceBy(const QByteArray &text)
{
    const off_t old = lseek(m_fd, 0, SEEK_END), size = text.size();
    // A medium may store the length before the bytes or after them. A longer text finds its room
    // there already, as zeros that no reader of the old one sees; a shorter one is there before
    // the file is cut. Else a cut of power between the two leaves a text without its end.
    if (old > 0 && old < size && (ftruncate(m_fd, size) != 0 || fsync(m_fd) != 0))
        return false;
    if (lseek(m_fd, 0, SEEK_SET) != 0 || !write(text.constData(), size))
        return false;
    if (old > size && size > 0)
        fsync(m_fd);
    const bool stored = ftruncate(m_fd, size) == 0 && fsync(m_fd) == 0;
    sync(); // the folder's entry of a new file too
    return stored;
}

bool writeFile(const char *path, const QByteArray &text)
{
    File file(path, O_RDWR | O_CREAT);
    return file.isOpen() && file.replaceBy(text);
}

QByteArray readFile(const char *path, int length, int flags)
{
    File file(path, O_RDONLY | flags);
    QByteArray text(length, '\0');
    text.resize(file.isOpen() ? qMax(0, int(file.read(text.data(), length))) : 0);
    return text;
}
