#pragma once

#include "panel/virtualpanel.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace station {

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
        return m_path;
    }
    VirtualPanel &panel(int number)
    {
        return *m_panels.at(size_t(number) - 1);
    }

private:
    void fromStation();

    std::vector<std::unique_ptr<VirtualPanel>> m_panels;
    int m_master = -1, m_slave = -1;
    QString m_path;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace station
