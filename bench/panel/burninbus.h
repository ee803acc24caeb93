#pragma once

#include "panel/interrupt.h"
#include "panel/virtualpanel.h"

#include <memory>
#include <vector>

// Virtual panels at burn-in, with the station numbers 1, 2, ..., on one RS-485 bus: what one sends,
// the station (at the ttyO3 of any of them) and every other panel hear. All are on and listen.
// Throws BenchError.
inline std::vector<std::unique_ptr<VirtualPanel>> burnInBus(int count)
{
    std::vector<std::unique_ptr<VirtualPanel>> panels;
    QVector<PtyPort *> ports;
    for (int number = 1; number <= count; ++number) {
        panels.push_back(std::make_unique<VirtualPanel>());
        panels.back()->setLevel("BI");
        panels.back()->writeFile("/usr/local/ict/HMI_STATION_NUM.txt",
                                 QByteArray::number(number, 16).rightJustified(2, '0').toUpper());
        ports << panels.back()->port(Port::ttyO3);
    }
    PtyPort::join(ports);
    for (const auto &panel : panels)
        panel->powerOn();
    for (PtyPort *port : ports) {
        const bool ready = waitFor([&] { return interrupted() || port->isOpenOnPanel(); }, 30000);
        endIfInterrupted();
        if (!ready)
            throw BenchError("A panel of the bus does not open its port within 30 s");
    }
    return panels;
}
