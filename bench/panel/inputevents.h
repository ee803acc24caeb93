#pragma once

#include <QMutex>
#include <QObject>
#include <QVector>

#include <cstdint>

// One event as written to the panel's input device.
struct InputEvent {
    qint64 ns; // when it was written, CLOCK_MONOTONIC
    uint16_t type, code;
    int32_t value;
};

// The panel's buzzer device: a FIFO, decoded. Lives in the panel's I/O thread; thread-safe.
class InputEvents : public QObject {
public:
    // Opens the FIFO at `path`, which must exist; the events that arrive are kept from then on.
    explicit InputEvents(const QString &path);
    ~InputEvents() override;

    QVector<InputEvent> all() const;
    void clear();
    // What a microphone would hear from one moment to another: the tone's frequency in hertz, 0 for
    // silence, at the start and after each event.
    QVector<int> tones(qint64 from, qint64 to) const;

private:
    void readFifo();

    int fd_;
    QByteArray partial_;
    mutable QMutex mutex_;
    QVector<InputEvent> events_;
};
