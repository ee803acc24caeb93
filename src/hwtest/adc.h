// What the raw values of the analogue inputs mean. Values only, no I/O.
#pragma once

enum AdcChannel {
    ChannelRail5V = 4, // a third of it at the pin
    ChannelRail3V3 = 5, // half of it
    ChannelBattery = 6, // a third of it
    ChannelThermistor = 7
};

// A 12-bit `raw` value of `channel` in millivolts before the board's divider; of any channel
// without a divider the temperature of its thermistor in degrees Celsius.
double adcValue(int channel, int raw);
