#include "analoginput.h"

#include "adc.h"
#include "system/files.h"

#include <QByteArray>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

constexpr int RetryPauseUs = 100;
constexpr int MaxDigits = 4; // of a 12-bit value
constexpr int InvalidValue = -1; // all ones

int readAnalogInput(int channel, double *value)
{
    char path[64];
    snprintf(path, sizeof path, "/sys/bus/iio/devices/iio:device0/in_voltage%d_raw", channel);
    // Without a limit on purpose: the converter's driver may still be loading, and a unit without
    // one must not get past this item. The station sees a panel that does not answer.
    for (;; usleep(RetryPauseUs)) {
        const QByteArray text = readFile(path, MaxDigits, O_NONBLOCK);
        if (text.isEmpty())
            continue;
        const int raw = atoi(text.constData());
        if (raw != InvalidValue) {
            *value = adcValue(channel, raw);
            return 0;
        }
        printf("No valid data - %s\n", text.constData());
    }
}

int readRail5V(double *mV)
{
    return readAnalogInput(ChannelRail5V, mV);
}

int readRail3V3(double *mV)
{
    return readAnalogInput(ChannelRail3V3, mV);
}

int readBattery(double *mV)
{
    return readAnalogInput(ChannelBattery, mV);
}

int readThermistor(double *celsius)
{
    return readAnalogInput(ChannelThermistor, celsius);
}
