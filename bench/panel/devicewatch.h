#pragma once

#include <QHash>
#include <QMutex>
#include <QPair>
#include <QString>
#include <QVector>

#include <memory>
#include <thread>

class PtyPort;

// Hears who opens and closes devices. One for all ports of this program: a machine allows its users
// few of them (128 as a rule). From any thread.
class DeviceWatch {
public:
    // Devices by their numbers, and whether each was opened (false) or closed (true).
    using Uses = QVector<QPair<int, bool>>;

    static std::shared_ptr<DeviceWatch> shared(); // throws BenchError
    DeviceWatch();
    ~DeviceWatch();
    // A number for the device, for as long as it is there.
    int add(const QString &path, PtyPort *port);
    void remove(PtyPort *port);
    // What has happened to the port's devices since it last asked; PtyPort::watchDevices() is
    // called in its thread whenever there is something.
    Uses take(PtyPort *port);

private:
    void read(PtyPort *asker);

    QMutex mutex_; // of the next three
    int fd_ = -1, stop_[2];
    QHash<int, PtyPort *> ports_; // by the device's number
    QHash<PtyPort *, Uses> uses_;
    std::thread thread_;
};
