#include "panel/panelimage.h"
#include "panel/bencherror.h"
#include "panel/files.h"
#include "panel/urgency.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QVector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The lines of skeleton/folders-and-links: a folder, or a link and its target. Links are relative
// where both the panel and this machine follow them; /media/sda is the fixture's cable from the USB
// device port, which offers the RAM disk, to the host port.
QVector<QStringList> foldersAndLinks()
{
    QVector<QStringList> entries;
    const QByteArray list = readWhole(sharedFile("bench/panel/skeleton/folders-and-links"));
    for (const QByteArray &line : list.split('\n')) {
        if (!line.isEmpty())
            entries << QString::fromLatin1(line).split(' ');
    }
    return entries;
}

const char toolbox[] = "/run/bench/toolbox";
constexpr int sramSize = 32768, nandSize = 131072;

void put(const QString &path, const QByteArray &content)
{
    if (!writeInPlace(path, content))
        throw BenchError(QString("Cannot write %1: check that the panel's folder is yours and its "
                                 "disk not full")
                             .arg(path));
}

// The files `from` into the folder `to`; `how` says what about those that are there.
void copy(const QString &how, const QStringList &from, const QString &to)
{
    const QStringList args = QStringList{"-r", "--preserve=mode", how} + from + QStringList(to);
    const Urgently start;
    if (QProcess::execute("cp", args) != 0)
        throw BenchError(QString("Cannot copy %1 to %2: is the source tree of this build still "
                                 "there, and the panel's folder yours?")
                             .arg(from.value(0), to));
}

void link(const QString &path, const QString &target)
{
    QFile::remove(path);
    QFile::link(target, path);
}

// The machine's /usr is the panel's, so what links into it here must there.
void linkUsr(const QString &root)
{
    for (const char *name : {"bin", "sbin", "lib", "lib32", "lib64", "libx32"}) {
        const QString path = QString("/") + name;
        if (QFileInfo::exists(path))
            link(root + path, "usr" + path);
    }
}

// As after a power-up that never was: nothing anyone wrote.
void fillSram(const QString &root)
{
    put(root + "/dev/OstraHMI_GPMC_RW", QByteArray(sramSize, '\xa5'));
}

// A folder that no panel was laid out in may be somebody's home.
void refuseForeign(const QString &root)
{
    if (!QDir(root).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
        && !QFileInfo(root + "/run/bench").isDir())
        throw BenchError(
            QString("%1 has files in it that are no panel's: name another folder").arg(root));
}

} // namespace

QString toolPath(const QString &tool)
{
    for (const QStringList &entry : foldersAndLinks()) {
        if (entry.value(1) == toolbox && entry[0].endsWith('/' + tool))
            return entry[0];
    }
    return {};
}

void layOutPanel(const QString &root)
{
    refuseForeign(root);
    QDir().mkpath(root + "/run/bench"); // first: from here on it is a panel's
    for (const QStringList &entry : foldersAndLinks()) {
        if (entry.size() > 1)
            link(root + entry[0], entry[1]);
        else if (!QDir().mkpath(root + entry[0]))
            throw BenchError(QString("Cannot create %1: check that the panel's folder is yours")
                                 .arg(root + entry[0]));
    }
    chmod(QFile::encodeName(root + "/root"), 0700); // serves the toolkit as its runtime folder
    linkUsr(root);
    // The board's attributes are healthy and its programs new at every start of the bench; what the
    // panel changes itself is there only once.
    copy("--remove-destination", {sharedFile("bench/panel/skeleton/board/.")}, root);
    copy("--no-clobber", {sharedFile("bench/panel/skeleton/factory/.")}, root);
    // The image's real scripts run as they are.
    QStringList scripts;
    for (const QFileInfo &script : QDir(sharedFile("image")).entryInfoList({"*.sh"}, QDir::Files))
        scripts << script.filePath();
    copy("--remove-destination", scripts, root + "/usr/local/ict");
    mkfifo(QFile::encodeName(root + "/dev/input/event1"), 0600); // or it is there
    if (!QFile::exists(root + "/dev/mtd0"))
        put(root + "/dev/mtd0", QByteArray(nandSize, '\xff'));
    if (!QFile::exists(root + "/dev/OstraHMI_GPMC_RW"))
        fillSram(root);
    if (!QFile::exists(root + "/etc/localtime"))
        QFile::copy("/usr/share/zoneinfo/UTC", root + "/etc/localtime");
}

void clearPanel(const QString &root)
{
    refuseForeign(root);
    const QStringList devices{"dev", "sys", "run"};
    for (const QFileInfo &entry : QDir(root).entryInfoList(QDir::AllEntries | QDir::System
                                                           | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (devices.contains(entry.fileName()))
            continue;
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.filePath()).removeRecursively();
        else
            QFile::remove(entry.filePath());
    }
    fillSram(root);
}

void clearVolatile(const QString &root)
{
    for (const char *folder : {"/tmp", "/mnt/ramdisk"})
        QDir(root + folder).removeRecursively();
    QDir().mkpath(root + "/tmp");
    for (const char *file :
         {"/run/bench/booted", "/run/bench/vnc", "/run/bench/calls", "/dev/ttyGS0", "/dev/ttyUSB0"})
        QFile::remove(root + file);
}
