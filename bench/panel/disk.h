#pragma once

#include <QString>

// Disks of an emulated machine, as files of this one. What is there already stays. Both throw a
// BenchError.
// An ext4 file system of the whole disk.
void makeDisk(const QString &path, int mebibytes);
// A stick or a card: ext2 on its one partition.
void makeMedium(const QString &path, int mebibytes);
