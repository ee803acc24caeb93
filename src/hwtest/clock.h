// The panel's clock as the boots need it.
#pragma once

// Sets system clock and RTC to 1 January 2015, so that a panel whose RTC was never set starts from
// a known date.
void presetClock();

// Sets the RTC, which is kept in UTC, to the system clock.
void writeRtc();
