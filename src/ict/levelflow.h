// The operations that change the test level, on disk only: the running agent keeps its level until
// it is started again. They are members of MainWindow; this header is what the boot shares.
#pragma once

#include <QByteArray>

// The SRAM behind the panel's memory bus.
constexpr char SramDevice[] = "/dev/OstraHMI_GPMC_RW";
constexpr int SramSize = 32768;

// Index of the extended T1 end check, whose result goes into the T1 end item.
constexpr int ExtendedT1Check = -1;

// Deletes a level's flag file, so that a new pass of that level starts with nothing passed.
void removeFlagFile(const char *path);
