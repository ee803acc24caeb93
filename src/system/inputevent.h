// Sound events for the buzzer's input device.
#pragma once

constexpr char BuzzerDevice[] = "/dev/input/event1";

// Writes the two events that switch the tone on (sound level 99, then 1000 Hz) to the open device.
void buzzerOn(int deviceFd);

// Writes the event that ends the tone.
void buzzerOff(int deviceFd);
