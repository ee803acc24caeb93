#pragma once

#include "panel/boundprocess.h"
#include "panel/machine.h"

#include <QJsonObject>
#include <QLocalSocket>
#include <QSet>
#include <QStringList>

#include <array>

struct PanelOptions;

// A whole ARM machine in an emulator: kernel, drivers, the package with its init script; made by
// tools/board.sh. Power off stops it between two instructions, power on resets it, and returns when
// the package's init script has been called. The panel's files reach it by 9p. What the sandbox has
// as files and the machine as devices of its drivers is asked for with run().
class Board : public Machine {
    Q_OBJECT

public:
    // `folder` is the panel's; it takes disks, sockets and logs. With IctDisk::own the panel's
    // /usr/local/ict is an ext4 disk, board/ict.img there.
    Board(const PanelOptions &options, const QString &folder,
          const std::array<PtyPort *, portCount> &ports);
    ~Board() override;

    // Empties the disks; the next power-on is a new machine's.
    void factoryNew();
    // With `agentArgs` the agent is not started by the init script but by hand, in another mode.
    void start(const QStringList &agentArgs) override;
    void stop() override;
    bool isRunning() override
    {
        return on_;
    }
    int waitForEnd(int ms) override;
    qint64 agentPid() const override;
    QByteArray printed(const QString &file) const override;
    bool keepsPorts() const override
    {
        return true;
    }
    bool isReady(PtyPort *port) override;
    bool setPlugged(Port id, const QString &device) override;
    // /media/sda1 is the stick, /media/mmcblk0p1 the card, /media/sda the cable between the two USB
    // ports. May be called while the power is off.
    bool setPresent(const QString &panelPath, bool present) override;
    // Its far end is on the machine itself: it cannot be unplugged.
    void setGadget(bool plugged);

    // What a shell on the machine prints for a command, error output included; `*status`, if given,
    // is its exit status.
    QByteArray run(const QString &command, int *status = nullptr);
    // The peer on the PC link is ready to receive (its CTS on), or not.
    void holdCts(bool ready);
    // One command of the emulator's monitor.
    QJsonObject monitor(const QString &command, const QJsonObject &arguments = {});

    static QString vncSocket(const QString &folder)
    {
        return folder + "/board/vnc";
    }

private:
    void layOut() const;
    QString portPath(Port id) const
    {
        return ports_[size_t(id)]->panelPath();
    }
    QStringList arguments() const;
    void launch();
    void end();
    void awaitBoot();
    void connectTo(QLocalSocket *socket, const QString &name);
    void plugAdapter();
    void applyPresence(const QString &panelPath, bool present);

    const QString folder_, root_;
    const bool ownDisk_;
    const std::array<PtyPort *, portCount> ports_;
    bool on_ = false;
    QSet<QString> away_; // by setPresent()
    QString adapter_; // what the adapter in the USB host port leads to
    int adapters_ = 0; // plugged in so far
    BoundProcess machine_;
    QLocalSocket monitor_, shell_;
};
