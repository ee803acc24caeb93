// Small files of the panel: written whole, synced and closed.
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

    // As many bytes as there are, `length` at most; the count, 0 on an error.
    qint64 read(char *bytes, qint64 length);

private:
    int m_fd;
};

// Creates or truncates `path`, writes, syncs. False when the file cannot be opened; a write cut
// short by a full disk is not reported, as nobody on the link could be told what it means.
bool writeFile(const char *path, const QByteArray &text);

// The first `length` bytes of the file at most; empty when it cannot be read.
QByteArray readFile(const char *path, int length);
