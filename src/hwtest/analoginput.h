// Reading the analogue inputs of the SoC.
#pragma once

// Reads `channel` into `value` as adcValue() gives it. 0 always: an input that is not there, empty
// or not valid is tried again for ever, and the caller waits as long.
int readAnalogInput(int channel, double *value);

// The inputs of the board.
int readRail5V(double *mV);
int readRail3V3(double *mV);
int readBattery(double *mV);
int readThermistor(double *celsius);
