#pragma once

#include "panel/virtualpanel.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

// Virtual panels at burn-in on one RS-485 bus: what one sends, the station and every other panel
// hear. Use from one thread.
class BurnInBus {
public:
    // Makes `count` panels with the station numbers 1, 2, ... and switches them on. Throws
    // BenchError.
    explicit BurnInBus(int count);
    ~BurnInBus();

    // The station's end of the bus, to be opened like a serial port.
    QString path() const
    {
        return path_;
    }
    VirtualPanel &panel(int number)
    {
        return *panels_.at(size_t(number) - 1);
    }

private:
    void fromStation();

    std::vector<std::unique_ptr<VirtualPanel>> panels_;
    int master_ = -1, slave_ = -1;
    QString path_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
