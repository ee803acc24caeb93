// A boot with hostile files: level, flags, station number, machine ID, the product application's
// answer, in this order with a byte 0xff between. A file that is not there any more is absent.
#include "fuzz/panel.h"
#include "state/levels.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startToolkit();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const quint8 *data, size_t size)
{
    const QList<QByteArray> files =
        QByteArray(reinterpret_cast<const char *>(data), int(size)).split('\xff');
    putFile(LevelFilePath, files.value(0));
    for (const Level &level : levels)
        putFile(level.flagFile, files.value(1));
    putFile("/usr/local/ict/HMI_STATION_NUM.txt", files.value(2));
    putFile("/usr/local/ict/HMI_MACHINE_ID.txt", files.value(3));
    identity = files.value(4);
    QFile::remove("/usr/local/ict/FactoryTestLog.txt");
    delete new MainWindow;
    // What cannot be read must not stay: the next boot finds what this one made whole.
    QFile flags(g_HMI_TEST_File);
    if (!flags.open(QIODevice::ReadOnly) || flags.size() < TEST_ITEM * 64)
        abort();
    return 0;
}
