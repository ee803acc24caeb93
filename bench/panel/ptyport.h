#pragma once

#include "panel/devicewatch.h"

#include <QByteArray>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVector>

class QSocketNotifier;
class QTimer;

// The panel's serial devices, by the names the agent opens.
enum class Port { ttyO1, ttyO3, ttyO4, ttyUSB0, ttyGS0 };
constexpr int portCount = 5;
const char *portName(Port port);

// One serial port of a panel: a pty whose slave is the panel's device, and a second pty whose slave
// any program of this machine can open as the far end of the cable (outsidePath()).
//
// Bytes towards the panel arrive at the pace of the line speed that the panel has set, and are lost
// while nobody on the panel has the port open, as on a UART. Bytes from the panel go, at once, to
// whoever listens: the signal, the program on the outside pty, the other ports of its line.
//
// The object lives in its panel's I/O thread, so that the traffic flows while the caller blocks.
// All functions may be called from any thread; the signals are emitted in the I/O thread.
class PtyPort : public QObject {
    Q_OBJECT

public:
    // Throws BenchError when the machine has no pty left.
    explicit PtyPort(Port id);
    ~PtyPort() override;

    Port id() const
    {
        return id_;
    }
    // The device file behind the panel's name, for example "/dev/pts/7"; empty while unplugged.
    QString panelPath() const;
    // The device file of the far end, for a station program or a terminal.
    QString outsidePath() const
    {
        return outside_.path;
    }
    // Speed in baud that the panel last set on the port; 0 for none (the USB ports have no speed).
    int lineSpeed() const;
    // Whether a process of the panel holds the port open now.
    bool isOpenOnPanel() const;
    // Whether all that was sent to the panel has arrived there, or is lost.
    bool isDelivered();
    // Puts bytes on the line to the panel.
    void send(const QByteArray &bytes);
    // Wires ports together, two by a cable or any number on a bus: what one's panel or outside
    // program says, the others' hear. cut() takes one off its line.
    static void join(const QVector<PtyPort *> &line);
    void cut();

    // For VirtualPanel. A port that is unplugged hangs up on the panel's programs that have it open
    // and has another panelPath() when it is plugged again, with nothing left on its line.
    void setPlugged(bool plugged);
    void watchDevices(); // for DeviceWatch

signals:
    // Bytes as they left the panel or were delivered to it; `ns` is CLOCK_MONOTONIC.
    void fromPanel(const QByteArray &bytes, qint64 ns);
    void intoPanel(const QByteArray &bytes, qint64 ns);
    void fromOutside(const QByteArray &bytes);

private:
    void readPanel();
    void readOutside();
    void emptyReceiver();
    void toOutside(const QByteArray &bytes);
    void hear(const QByteArray &bytes);
    void queue(const QByteArray &bytes);
    void pump();
    qint64 byteTime() const;

    // A raw pseudo terminal; reading the master does not block.
    struct Pty {
        int master = -1, slave = -1;
        QString path;
    };
    static Pty openPty();

    const Port id_;
    mutable QMutex mutex_; // guards panel_, which is replaced when the port is plugged
    Pty panel_, outside_;
    QSocketNotifier *fromPanel_ = nullptr;
    const std::shared_ptr<DeviceWatch> watch_ = DeviceWatch::shared();
    int outsideWatch_;
    bool attached_ = false; // a program has the outside device open
    bool unread_ = false; // bytes were delivered to the panel since its receiver was emptied
    QTimer *pace_;
    QByteArray line_; // bytes on their way to the panel
    qint64 arrived_ = 0; // when the last byte before them arrived, CLOCK_MONOTONIC in ns
    QVector<PtyPort *> others_; // on the same line
};

// CLOCK_MONOTONIC in nanoseconds, the time base of all of the bench's time stamps.
qint64 monotonicNs();
