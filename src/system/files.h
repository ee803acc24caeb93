// Small files of the panel, which a cut of power must not cost: never empty in between.
#pragma once

#include <QByteArray>
#include <QtGlobal>

constexpr int NewFileMode = 0644; // rw-r--r--

// An owned file descriptor, closed with its scope.
class File {
public:
    File(const char *path, int flags);
    ~File();
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    bool isOpen() const
    {
        return m_fd >= 0;
    }
    int fd() const
    {
        return m_fd;
    }

    // Exactly all of `bytes` from the current place on; false if the file took fewer.
    bool write(const char *bytes, qint64 length);

    // Makes `text` all that the file holds: written over what stands there in one write, then cut
    // to its length, then synced. False unless all of it has reached the medium; what did not fit
    // leaves the file uncut.
    bool replaceBy(const QByteArray &text);

    // As many bytes as there are, `length` at most; the count, -1 on an error.
    qint64 read(char *bytes, qint64 length);

private:
    int m_fd;
};

// Makes `text` the content of `path` as File::replaceBy() does; the file is created if missing and
// never truncated first. False when it cannot be opened or did not take all of it.
bool writeFile(const char *path, const QByteArray &text);

// The first `length` bytes of the file at most, opened read-only with `flags`; empty when it cannot
// be read.
QByteArray readFile(const char *path, int length, int flags = 0);
