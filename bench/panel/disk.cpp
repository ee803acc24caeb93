#include "panel/disk.h"

#include "panel/bencherror.h"

#include <QFile>
#include <QProcess>

namespace {

constexpr int mebibyte = 1 << 20;

QByteArray littleEndian(int value)
{
    QByteArray bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.append(char(value >> shift));
    return bytes;
}

void makeFile(const QString &path, qint64 size, const QByteArray &partitions)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(size) || !file.seek(446)
        || file.write(partitions) != partitions.size())
        throw BenchError("Cannot write " + path + ": " + file.errorString());
}

void makeFileSystem(const QString &path, const char *type, int offset, int kibibytes)
{
    const QStringList args{"-q", "-F",
                           "-t", type,
                           "-b", "1024",
                           "-E", QString("offset=%1").arg(offset),
                           path, QString::number(kibibytes)};
    if (QProcess::execute("/sbin/mke2fs", args) != 0)
        throw BenchError("mke2fs " + args.join(' ') + " failed: is packages-board.txt installed?");
}

} // namespace

void makeDisk(const QString &path, int mebibytes)
{
    if (QFile::exists(path))
        return;
    makeFile(path, qint64(mebibytes) * mebibyte, {});
    makeFileSystem(path, "ext4", 0, mebibytes * 1024);
}

// The first of the four entries at the end of the master boot record: type Linux, from 1 MiB on,
// in sectors of 512 bytes.
void makeMedium(const QString &path, int mebibytes)
{
    if (QFile::exists(path))
        return;
    const int first = mebibyte / 512, count = (mebibytes - 1) * first;
    const QByteArray entry =
        QByteArray::fromHex("0000000083000000") + littleEndian(first) + littleEndian(count);
    makeFile(path, qint64(mebibytes) * mebibyte, entry + QByteArray(3 * 16, '\0') + "\x55\xaa");
    makeFileSystem(path, "ext2", mebibyte, (mebibytes - 1) * 1024);
}
