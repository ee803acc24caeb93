#include "station/bus.h"

#include <poll.h>
#include <pty.h>
#include <unistd.h>

BurnInBus::BurnInBus(int count)
{
    char path[64];
    termios raw = {};
    cfmakeraw(&raw);
    if (openpty(&master_, &slave_, path, &raw, nullptr) != 0) {
        throw BenchError("No pseudo terminal to be had: close some terminals");
    }
    path_ = path;
    for (int number = 1; number <= count; ++number) {
        panels_.push_back(std::make_unique<VirtualPanel>());
        panel(number).writeFile("/usr/local/ict/HMI_TEST_LEVEL.txt", "BI \n");
        panel(number).writeFile("/usr/local/ict/HMI_STATION_NUM.txt",
                                QByteArray::number(number, 16).rightJustified(2, '0').toUpper());
    }
    for (const auto &sender : panels_) {
        PtyPort *port = sender->port(Port::ttyO3);
        // In the sender's I/O thread; sending to a port is allowed from any.
        QObject::connect(port, &PtyPort::fromPanel, port, [this, port](const QByteArray &bytes) {
            if (::write(master_, bytes.constData(), size_t(bytes.size())) < 0) {
                return; // nobody reads: lost, as on the wire
            }
            for (const auto &other : panels_) {
                if (other->port(Port::ttyO3) != port) {
                    other->port(Port::ttyO3)->send(bytes);
                }
            }
        });
    }
    thread_ = std::thread([this] { fromStation(); });
    for (const auto &panel : panels_) {
        panel->powerOn();
    }
    for (const auto &panel : panels_) {
        if (!waitFor([&] { return panel->port(Port::ttyO3)->isOpenOnPanel(); }, 30000)) {
            throw BenchError("A panel of the bus does not open its port within 30 s");
        }
    }
}

BurnInBus::~BurnInBus()
{
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    for (const auto &panel : panels_) {
        panel->powerOff();
    }
    panels_.clear();
    ::close(master_);
    ::close(slave_);
}

void BurnInBus::fromStation()
{
    while (!stop_) {
        pollfd fd{master_, POLLIN, 0};
        char bytes[256];
        const ssize_t n = poll(&fd, 1, 50) > 0 ? ::read(master_, bytes, sizeof bytes) : 0;
        for (const auto &panel : panels_) {
            if (n > 0) {
                panel->port(Port::ttyO3)->send(QByteArray(bytes, int(n)));
            }
        }
    }
}
