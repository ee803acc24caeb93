// Which factory built the unit, and what that spares it.
#pragma once

#include <QByteArray>

constexpr char MachineIdPath[] = "/usr/local/ict/HMI_MACHINE_ID.txt";
constexpr int MachineIdFileLimit = 4096; // bytes read of it at most

enum FactoryInfo { FactoryUnknown = 0, FactoryW = 1, FactoryT = 2 };

// The character of a machine ID that marks the factory: the ninth, or of an 18-character ID the
// tenth. 0 for an ID of nine characters or fewer, which tells nothing.
char factoryMarker(const QByteArray &id);

// FactoryInfo of a marker.
int factoryOfMarker(char marker);

// Sets g_FactoryInfo from a machine ID; an ID that tells nothing leaves it as it was.
void classifyFactory(const QByteArray &id);

// Passes and records the items that the level does not ask of a unit from this factory: at T1 the
// station number and the USB test of factory W's units, at BI the USB test of all others.
void grantItemsOfFactory();
