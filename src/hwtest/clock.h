// The panel's clock as the boot needs it.
#pragma once

// Sets system clock and RTC to 1 January 2015, so that a panel whose RTC was never set starts from
// a known date.
void presetClock();
