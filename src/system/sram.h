// The SRAM behind the panel's memory bus.
#pragma once

constexpr char SramDevice[] = "/dev/OstraHMI_GPMC_RW";
constexpr int SramSize = 32768;

// Sets all of it to zero. False when the device cannot be opened.
bool clearSram();
