#include "inputevent.h"

#include <QtGlobal>
#include <unistd.h>

// The panel's kernel takes 16-byte events: 8 bytes of time (left zero), type, code, value. The
// host's own struct is wider where time values have 64 bits, so the layout is written out.
struct InputEvent {
    quint8 time[8];
    quint16 type;
    quint16 code;
    qint32 value;
};
static_assert(sizeof(InputEvent) == 16, "wire layout of the panel's kernel");

constexpr quint16 EvSnd = 18;
constexpr quint16 SndTone = 2; // value: hertz, 0 is silence
constexpr quint16 SndLevel = 3; // of the board's buzzer driver
constexpr qint32 LoudestLevel = 99;
constexpr qint32 TestTone = 1000;

static void send(int deviceFd, quint16 code, qint32 value)
{
    const InputEvent event = {{}, EvSnd, code, value};
    const ssize_t written = write(deviceFd, &event, sizeof event);
    Q_UNUSED(written)
}

void buzzerOn(int deviceFd)
{
    send(deviceFd, SndLevel, LoudestLevel);
    send(deviceFd, SndTone, TestTone);
}

void buzzerOff(int deviceFd)
{
    send(deviceFd, SndTone, 0);
}
