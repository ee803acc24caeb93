// The factory test log: 100-byte records of every exchange, and notes, with a hard size cap.
#pragma once

#include <QtGlobal>

constexpr char FactoryLogPath[] = "/usr/local/ict/FactoryTestLog.txt";
constexpr int LogRecordSize = 100; // NUL-terminated text, NUL padding
constexpr qint64 LogSizeCap = 0x40000; // beyond it nothing more is written, for good
constexpr qint64 LogWarningSize = 0x39999; // beyond it every record is followed by a warning

// Appends a note, or with a null `note` the last exchange (UART_Buffer_ShowInInfo and
// UART_Buffer_ShowOutInfo; not at BI). Silent on every failure;
// the result is 0 when a record was written, -1 when not.
int factoryLog(const char *note);
