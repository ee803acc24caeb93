// The pointer calibration file of the touch stack, its last good copy, and the records of touched
// positions. Nothing here reports a failure: the verdict of the check that follows does.
#pragma once

#include <QByteArray>

constexpr char PointercalFile[] = "/etc/pointercal";
constexpr char PointercalBackup[] = "/usr/local/ict/pointercal"; // the last good one
constexpr char T1TouchValueFile[] = "/usr/local/ict/T1_TP_Value.txt";
constexpr char T2TouchValueFile[] = "/usr/local/ict/T2_TP_Value.txt";

// Replaces the file by `coefficients` and a zero byte.
void writePointercal(const QByteArray &coefficients);

// Copies the file over the backup. The second only while there is nothing in the backup.
void backUpPointercal();
void backUpPointercalOnce();

// Before a calibration that the station asked for: the backup over the file, or, while there is
// nothing in the backup, the file to the backup.
void startFromLastGood();

// After a failed check: the backup over the file. Without a backup the file becomes a zero byte.
void restoreLastGood();

// Hands `line` to the boot loader's environment and starts the image's follow-up script without
// waiting for it.
void storeInBootLoader(const QByteArray &line);

// Writes `lines` over the start of a touch value file. A longer file keeps its tail: the file has
// always as many lines as the longest pass that wrote it.
void writeTouchValues(const char *path, const QByteArray &lines);
