#include "station/bus.h"

#include <poll.h>
#include <pty.h>
#include <unistd.h>

namespace station {

BurnInBus::BurnInBus(int count)
{
    char path[64];
    termios raw = {};
    cfmakeraw(&raw);
    if (openpty(&m_master, &m_slave, path, &raw, nullptr) != 0)
        throw BenchError("No pseudo terminal to be had: close some terminals");
    m_path = path;
    for (int number = 1; number <= count; ++number) {
        m_panels.push_back(std::make_unique<VirtualPanel>());
        panel(number).writeFile("/usr/local/ict/HMI_TEST_LEVEL.txt", "BI \n");
        panel(number).writeFile("/usr/local/ict/HMI_STATION_NUM.txt",
                                QByteArray::number(number, 16).rightJustified(2, '0').toUpper());
    }
    for (const auto &sender : m_panels) {
        PtyPort *port = sender->port(Port::ttyO3);
        // In the sender's I/O thread; sending to a port is allowed from any.
        QObject::connect(port, &PtyPort::fromPanel, port, [this, port](const QByteArray &bytes) {
            if (::write(m_master, bytes.constData(), size_t(bytes.size())) < 0)
                return; // nobody reads: lost, as on the wire
            for (const auto &other : m_panels)
                if (other->port(Port::ttyO3) != port)
                    other->port(Port::ttyO3)->send(bytes);
        });
    }
    m_thread = std::thread([this] { fromStation(); });
    for (const auto &panel : m_panels)
        panel->powerOn();
    for (const auto &panel : m_panels)
        if (!waitFor([&] { return panel->port(Port::ttyO3)->isOpenOnPanel(); }, 30000))
            throw BenchError("A panel of the bus does not open its port within 30 s");
}

BurnInBus::~BurnInBus()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
    for (const auto &panel : m_panels)
        panel->powerOff();
    m_panels.clear();
    ::close(m_master);
    ::close(m_slave);
}

void BurnInBus::fromStation()
{
    while (!m_stop) {
        pollfd fd{m_master, POLLIN, 0};
        char bytes[256];
        const ssize_t n = poll(&fd, 1, 50) > 0 ? ::read(m_master, bytes, sizeof bytes) : 0;
        for (const auto &panel : m_panels)
            if (n > 0)
                panel->port(Port::ttyO3)->send(QByteArray(bytes, int(n)));
    }
}

} // namespace station
