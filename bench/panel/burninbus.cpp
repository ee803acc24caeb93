#include "panel/burninbus.h"

BurnInBus::BurnInBus(int count)
{
    QVector<PtyPort *> ports;
    for (int number = 1; number <= count; ++number) {
        panels_.push_back(std::make_unique<VirtualPanel>());
        panel(number).setLevel("BI");
        panel(number).writeFile("/usr/local/ict/HMI_STATION_NUM.txt",
                                QByteArray::number(number, 16).rightJustified(2, '0').toUpper());
        ports << panel(number).port(Port::ttyO3);
    }
    PtyPort::join(ports);
    for (const auto &panel : panels_)
        panel->powerOn();
    for (PtyPort *port : ports) {
        if (!waitFor([&] { return port->isOpenOnPanel(); }, 30000))
            throw BenchError("A panel of the bus does not open its port within 30 s");
    }
}
