#pragma once

#include <QString>

// What the image's makers put on a panel, and the board's devices, under a folder that becomes the
// panel's "/". Throws BenchError when a file cannot be written, or the folder is somebody else's.

// Adds what is missing and refreshes the image's own programs; the panel's records stay.
void layOutPanel(const QString &root);
// Removes everything but the devices: the panel is as it left the board factory, SRAM included.
void clearPanel(const QString &root);
// Removes what a power cut takes away: RAM disks, the drivers' device files, the last boot's marks.
void clearVolatile(const QString &root);
// Where a program of the image lies on the panel; empty if the image has no such program.
QString toolPath(const QString &tool);
