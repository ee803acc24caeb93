#include "adc.h"

#include <cmath>

constexpr int ReferenceMv = 1830;
constexpr int FullScale = 4095;

// The thermistor with B = 3435 K and R = r times its value at 298 K hangs on 1800 mV; the last
// term takes the board's own warmth off.
static double celsius(int mV)
{
    const double r = 2.0 * mV / (1800 - mV);
    return 1023630 / (std::log(r) * 298 + 3435) - 273 - 2.5;
}

double adcValue(int channel, int raw)
{
    const int mV = raw * ReferenceMv / FullScale; // whole millivolts, deliberately
    switch (channel) {
    case ChannelRail5V:
    case ChannelBattery:
        return mV * 3.0;
    case ChannelRail3V3:
        return mV * 2.0;
    default:
        return celsius(mV);
    }
}
