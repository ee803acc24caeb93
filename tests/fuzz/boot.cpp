// A boot with hostile files, and a calibration: level, flags, station number, machine ID, the
// product application's answer, the last good calibration, the touch driver's values as decimal
// numbers, in this order with a byte 0xff between. A file that is not there any more is absent.
#include "MouseCalibration/calibrationmath.h"
#include "MouseCalibration/pointercal.h"
#include "MouseCalibration/targets.h"
#include "fuzz/panel.h"
#include "fuzz/require.h"
#include "state/levels.h"

// Whether the pointer calibration is the first bytes of the last good one, up to a zero byte.
static bool isRestored(const QByteArray &lastGood, int limit)
{
    QFile file(PointercalFile);
    return file.open(QIODevice::ReadOnly)
        && file.readAll() == QByteArray(lastGood.left(limit).constData()).append('\0');
}

static void calibrate(const QByteArray &lastGood, const QList<QByteArray> &samples)
{
    putFile(PointercalBackup, lastGood);
    startFromLastGood();
    require(lastGood.isEmpty() || isRestored(lastGood, 256));
    restoreLastGood();
    require(isRestored(lastGood, 512));
    CalibrationRecord record = {};
    const auto targets = calibrationTargets({800, 480});
    for (int i = 0; i < TouchTargets; ++i) {
        record.raw_x[i] = samples.value(2 * i).toInt();
        record.raw_y[i] = samples.value(2 * i + 1).toInt();
        record.screen_x[i] = targets[size_t(i)].x();
        record.screen_y[i] = targets[size_t(i)].y();
    }
    float determinant;
    require(fitCalibration(record, &determinant) == isFitted(record));
    require(bootLoaderLine(record).count(' ') == 7);
}

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
    require(flags.open(QIODevice::ReadOnly) && flags.size() >= TEST_ITEM * 64);
    calibrate(files.value(5), files.value(6).split(' '));
    return 0;
}
