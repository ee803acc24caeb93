// The items of the PFVP cycles that the panel tests on its own.
#pragma once

#include <QByteArray>

// Whether the rail's voltage is within its limits.
bool rail5VPasses();
bool rail3V3Passes();
bool batteryPasses(); // a lower limit only

// Writes a pattern over the whole SRAM and reads it back. The contents are put back only when it
// came back whole.
bool sramPasses();

// Whether the peer answers a ping on the cable between the two. No cycle asks for it.
bool pingPeer();

// Whether the output of a ping with one packet says that nothing was lost.
bool isPingAnswered(const QByteArray &output);
