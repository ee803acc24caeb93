#include "panel/panelimage.h"
#include "panel/bencherror.h"
#include "panel/filewrite.h"
#include "panel/touchpanel.h"
#include "panel/virtualpanel.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Tool {
    const char *name, *folder;
};
const Tool tools[] = {
    {"date", "/usr/local/bin"},
    {"hwclock", "/usr/local/bin"},
    {"modprobe", "/usr/local/bin"},
    {"ifconfig", "/usr/local/bin"},
    {"ping", "/usr/local/bin"},
    {"fw_setenv", "/usr/local/bin"},
    {"check_bk_rootfs.sh", "/usr/local/bin"},
    {"mount_system.sh", "/usr/local/ict"},
    {"create_ramdisk.sh", "/usr/local/ict"},
    {"lcd_circuit_test_init.sh", "/usr/local/ict"},
    {"lcd_circuit_test_pattern.sh", "/usr/local/ict"},
    {"lcd_circuit_test_uninit.sh", "/usr/local/ict"},
    {"fast_lcd_circuit_test_pattern.sh", "/usr/local/ict"},
    {"chk_ddr.sh", "/usr/local/ict"},
    {"ReadCrc.bin", "/usr/local/ict"},
    {"mem_rdwr", "/usr/local/ict"},
    {"update_pointercal.sh", "/usr/local/ict"},
    {"HMIApp", "/usr/local/HMIAPP"},
};

const char *const folders[] = {
    "/usr/local/bin",
    "/usr/local/ict",
    "/usr/local/HMIAPP",
    "/usr/local/conf",
    "/etc/fonts",
    "/etc/alternatives",
    "/var/lib",
    "/proc",
    "/root",
    "/tmp",
    "/mnt",
    "/media",
    "/run/bench/clock",
    "/run/bench/fault",
    "/dev/input",
    "/dev/pts",
    "/dev/shm",
    "/dev/plugged",
};

struct Link {
    const char *path, *target;
};
// Relative where both sides follow them.
const Link links[] = {
    {"/dev/fd", "/proc/self/fd"},
    {"/dev/stdin", "/proc/self/fd/0"},
    {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"},
    // The fixture's cable from the USB device port, which offers the RAM disk, to the host port.
    {"/media/sda", "../mnt/ramdisk"},
};

struct Content {
    const char *path, *text;
};
// Files the panel changes later: written only if missing.
const Content factoryFiles[] = {
    {"/usr/local/HMIAPP/identity", "Model=KLV-100\nVersion=A.0123\n"},
    {"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"},
    {"/etc/group", "root:x:0:\n"},
};
// Healthy readings, refreshed when the bench starts.
const Content attributes[] = {
    {attribute::backlight, "100\n"},
    {attribute::adcX, "0\n\n\n\n"},
    {attribute::adcY, "0\n\n\n\n"},
    {attribute::pressure, "0\n\n\n\n"},
    {attribute::sinceEpoch, "1420070400\n"},
    {"/sys/bus/iio/devices/iio:device0/in_voltage4_raw", "3731\n"}, // 5.001 V
    {"/sys/bus/iio/devices/iio:device0/in_voltage5_raw", "3693\n"}, // 3.300 V
    {"/sys/bus/iio/devices/iio:device0/in_voltage6_raw", "2313\n"}, // 3.099 V
    {"/sys/bus/iio/devices/iio:device0/in_voltage7_raw", "2000\n"},
    {"/sys/class/usb_role/usb0-role-switch/role", "device\n"}, // of image/usb_mode.sh
};

constexpr int sramSize = 32768, nandSize = 131072;

void put(const QString &path, const QByteArray &content)
{
    QDir().mkpath(path.left(path.lastIndexOf('/')));
    if (!writeInPlace(path, content))
        throw BenchError(QString("Cannot write %1: check that the panel's folder is yours and its "
                                 "disk not full")
                             .arg(path));
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

void installPrograms(const QString &root)
{
    const QString source = QStringLiteral(BENCH_SOURCE_DIR);
    const auto install = [&](const QString &from, const QString &to) {
        QFile::remove(to);
        if (!QFile::copy(from, to))
            throw BenchError(
                QString("Cannot copy %1 to %2: is the source tree of this build still there?")
                    .arg(from, to));
        chmod(QFile::encodeName(to), 0755);
    };
    for (const char *name : {"toolbox", "init", "leaks"})
        install(source + "/bench/panel/tools/" + name, root + "/run/bench/" + name);
    for (const Tool &tool : tools)
        link(root + toolPath(tool.name), "/run/bench/toolbox");
    // The image's real scripts run as they are.
    for (const QString &script : QDir(source + "/image").entryList({"*.sh"}, QDir::Files))
        install(source + "/image/" + script, root + "/usr/local/ict/" + script);
}

void layOutDevices(const QString &root)
{
    const QByteArray buzzer = QFile::encodeName(root + "/dev/input/event1");
    if (!QFile::exists(buzzer))
        mkfifo(buzzer.constData(), 0600);
    for (const Content &file : attributes)
        put(root + file.path, file.text);
    const QString nand = root + "/dev/mtd0";
    if (!QFile::exists(nand))
        put(nand, QByteArray(nandSize, '\xff'));
}

// As after a power-up that never was: nothing anyone wrote.
void fillSram(const QString &root)
{
    put(root + "/dev/OstraHMI_GPMC_RW", QByteArray(sramSize, '\xa5'));
}

} // namespace

QString toolPath(const QString &name)
{
    for (const Tool &tool : tools) {
        if (name == tool.name)
            return QString(tool.folder) + '/' + name;
    }
    return {};
}

void layOutPanel(const QString &root)
{
    for (const char *folder : folders) {
        if (!QDir().mkpath(root + folder))
            throw BenchError(QString("Cannot create %1: check that the panel's folder is yours")
                                 .arg(root + folder));
    }
    chmod(QFile::encodeName(root + "/root"), 0700); // serves the toolkit as its runtime folder
    linkUsr(root);
    for (const Link &one : links)
        link(root + one.path, one.target);
    layOutDevices(root);
    if (!QFile::exists(root + "/dev/OstraHMI_GPMC_RW"))
        fillSram(root);
    for (const Content &file : factoryFiles) {
        if (!QFile::exists(root + file.path))
            put(root + file.path, file.text);
    }
    if (!QFile::exists(root + "/etc/pointercal")) // the zero byte is part of the file
        put(root + "/etc/pointercal", QByteArray(factoryPointercal).append('\0'));
    if (!QFile::exists(root + "/etc/localtime"))
        QFile::copy("/usr/share/zoneinfo/UTC", root + "/etc/localtime");
    installPrograms(root);
}

void clearPanel(const QString &root)
{
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
    for (const char *file : {"/run/bench/booted", "/run/bench/vnc", "/dev/ttyGS0", "/dev/ttyUSB0"})
        QFile::remove(root + file);
}
