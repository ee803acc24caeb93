#pragma once

#include "panel/virtualpanel.h"

#include <memory>
#include <vector>

// Virtual panels at burn-in on one RS-485 bus: what one sends, the station and every other panel
// hear. Use from one thread.
class BurnInBus {
public:
    // Makes `count` panels with the station numbers 1, 2, ... and switches them on. Throws
    // BenchError.
    explicit BurnInBus(int count);

    // The station's end of the bus, to be opened like a serial port.
    QString path()
    {
        return panel(1).linkPath(Port::ttyO3);
    }
    VirtualPanel &panel(int number)
    {
        return *panels_.at(size_t(number) - 1);
    }

private:
    std::vector<std::unique_ptr<VirtualPanel>> panels_;
};
