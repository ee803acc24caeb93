// Sending on the PC link, and the link's 40-byte echo buffers.
#pragma once

#include "state/linkstate.h"

#include <QByteArray>

constexpr char StationFilePath[] = "/usr/local/ict/HMI_STATION_NUM.txt";

// Replaces what a link buffer holds: zeroes it and copies `text`, cut to what fits with its NUL.
// Everything that enters one of the 40-byte buffers goes through here.
void setLinkBuffer(char (&buffer)[LinkBufferSize], const QByteArray &text);

// The descriptors of the PC link at this level: COM1 RS-232, or at BI the COM2 RS-4xx globals,
// which hold COM1's RS-485 descriptor there.
qint32 linkReadFd();
qint32 linkWriteFd();

// Frames `payload` (30 characters at most), sends it, shows it and logs the exchange. With
// `ownStation` the frame carries the number in the station file, else "00". Returns the log's
// result, or the negative result of opening the station file: then nothing was sent or logged.
int sendReply(const QByteArray &payload, bool ownStation);

// The framed reply of a handler: with the own station wherever the panel has a station number.
int sendReply(const QByteArray &payload);

// Sends `text` as it stands, whole, and shows it, cut.
void sendRaw(const QByteArray &text);

// Sends the first `sent` bytes of `text` only, to `fd`; shows the text.
void sendRaw(qint32 fd, const QByteArray &text, int sent);
