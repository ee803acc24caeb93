// Checks of the panel against itself, shared by the commands of the PC link and the PFVP cycle.
// They block until their command has ended, and report nothing.
#pragma once

// Whether the RTC and the system clock are within a second of each other, in either direction.
bool rtcAgreesWithSystem();

// Whether the image's memory test found all eight areas good. False when it printed nothing.
bool ddrPasses();
