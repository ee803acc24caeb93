#pragma once

#include "panel/inputevents.h"
#include "panel/machine.h"
#include "panel/panelclock.h"
#include "panel/touchpanel.h"
#include "panel/vncscreen.h"
#include "panel/wait.h"

#include <QLockFile>
#include <QObject>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QVector>

#include <array>
#include <memory>

class Board;
class VncGate;

// From here on, panels are the whole ARM machine that tools/board.sh has made.
void useBoard();
bool boardWanted();

// How the panel's /usr/local/ict is mounted. `full` is a file system with the panel's files and no
// free byte; what the agent writes there is gone at power-off. `own` is a disk of the ARM machine,
// whose files are not on this one.
enum class IctDisk { normal, readOnly, full, own };

struct PanelOptions {
    QString folder; // the panel's persistent files; empty: a temporary folder, removed at the end
    // The program that runs as the agent; empty: what the environment names as BENCH_AGENT, with
    // its BENCH_AGENT_ROOT, or else the ict-agent of this build.
    QString agent;
    // If not empty, the agent is an ARM program and runs in an emulator, with the libraries of this
    // folder. What it starts are this machine's programs all the same.
    QString agentRoot;
    quint16 vncPort = 0; // TCP port for VNC viewers on 127.0.0.1; 0: any free one
    IctDisk ictDisk = IctDisk::normal;
    // A program of this machine, with its arguments, that starts the agent inside the panel and
    // becomes it or ends with it, for example a tracer.
    QStringList wrapper;
    bool board = boardWanted(); // a whole ARM machine instead of the sandbox
};

// From here on, panels take the ARM agent that tools/arm.sh has built where none is named.
void useArmAgent();

// One call of a program or script of the panel's image, as the panel's software made it.
struct ToolCall {
    qint64 ns; // CLOCK_MONOTONIC, to 10 ms
    QString tool; // base name, for example "modprobe" or "lcd_circuit_test_pattern.sh"
    QStringList args;
    // Tool and arguments with blanks between, for comparisons and messages.
    QString line() const
    {
        return (QStringList(tool) + args).join(' ');
    }
};

// Paths of the virtual hardware, for setAttribute() and hostPath().
namespace attribute {
constexpr char backlight[] = "/sys/class/backlight/backlight/brightness";
constexpr char adcX[] = "/sys/class/input/input0/device/ADC_X";
constexpr char adcY[] = "/sys/class/input/input0/device/ADC_Y";
constexpr char pressure[] = "/sys/class/input/input0/device/Warden_ADC_Z";
constexpr char sinceEpoch[] = "/sys/class/rtc/rtc0/since_epoch";
// 12-bit inputs: 4 the 5 V rail / 3, 5 the 3.3 V rail / 2, 6 the battery / 3, 7 a thermistor.
inline QString voltage(int channel)
{
    return QString("/sys/bus/iio/devices/iio:device0/in_voltage%1_raw").arg(channel);
}
} // namespace attribute

// A panel that is not there: runs the unmodified agent in a sandbox with a file system, devices,
// ports, clock and screen of the panel's own, or on a whole emulated machine. Nothing inside
// reaches the machine's own. What one of the two cannot offer throws a BenchError that names it.
//
// Use from one thread (but for the ports, see PtyPort); that thread must outlive the power-on, for
// the sandbox dies with it. Its events need not run: the traffic has a thread of its own.
// Functions throw BenchError when the bench itself cannot work, with the remedy in the text.
// The destructor switches off and leaves no process and no mount behind.
class VirtualPanel : public QObject {
    Q_OBJECT

public:
    static constexpr char levelFile[] = "/usr/local/ict/HMI_TEST_LEVEL.txt";

    explicit VirtualPanel(const PanelOptions &options = {}, QObject *parent = nullptr);
    ~VirtualPanel() override;

    // Empties the folder: the panel is as it left the board factory. Only while off.
    void factoryNew();

    // Power. On returns as soon as the agent's process exists, not when it is ready. Off kills
    // everything at once, as a mains switch does. Both are no-ops when already so.
    void powerOn(const QStringList &agentArgs = {});
    void powerOff()
    {
        machine_->stop();
    }
    void powerCycle(const QStringList &agentArgs = {});
    // False after a power-off and as soon as the agent has ended.
    bool isOn()
    {
        return machine_->isRunning();
    }
    // Waits for the agent to end by itself; its exit status (128 + n if signal n killed it), or -1
    // when it still runs after `ms`. The status stays until the next power-on.
    int waitForExit(int ms)
    {
        return machine_->waitForEnd(ms);
    }
    // The agent's process as this machine numbers it; 0 when off.
    qint64 agentPid() const
    {
        return machine_->agentPid();
    }
    // What the agent printed on standard output, and error, since the last power-on.
    QByteArray output() const
    {
        return machine_->printed("agent.log");
    }
    QByteArray errorOutput() const
    {
        return machine_->printed("agent.err");
    }

    // Ports. A USB port's device file exists while it is plugged and its driver loaded (modprobe).
    // Whether the panel is ready for a station on that port: its program has the port open, and
    // what it started in its boot has come up.
    bool isReady(Port id)
    {
        return machine_->isReady(port(id));
    }
    PtyPort *port(Port id) const
    {
        return ports_[size_t(id)];
    }
    // What the level file, four bytes, says from the next boot on: "ICT", "T1", ...
    void setLevel(const QString &level);
    // The PC link: ttyO3 while the level file says BI, else ttyO1.
    Port link() const;
    // What a program of this machine opens as the far end of a port.
    QString linkPath(Port id = Port::ttyO1) const
    {
        return port(id)->outsidePath();
    }
    // Hangs up, and plugs the port in again or not; plugged is ttyGS0 from the start, ttyUSB0 not.
    void setPlugged(Port id, bool plugged);
    // Lays a cable between two panels, which must both outlive it (PtyPort::cut() removes it). A
    // USB host port is plugged while the panel at the gadget's end is on.
    static void cable(VirtualPanel &a, Port ofA, VirtualPanel &b, Port ofB);
    // Takes a device or attribute file away, or puts the same one back.
    void setPresent(const QString &panelPath, bool present);
    // The thread of the ports. Fixture objects that answer on their own are moved to it.
    QThread *ioThread()
    {
        return &io_;
    }

    // Files. The place on this machine of a file of the panel, "/usr/local/ict/..." or a device or
    // attribute. With IctDisk::full, files of /usr/local/ict are found while the panel is on.
    QString hostPath(const QString &panelPath) const;
    QString folder() const
    {
        return folder_;
    }
    QByteArray readFile(const QString &panelPath) const; // empty if missing
    // Makes folders that are missing. Throws BenchError.
    void writeFile(const QString &panelPath, const QByteArray &content);

    // Attributes. A change is one write of equal length: no reader ever meets an empty file.
    void setAttribute(const QString &panelPath, const QByteArray &value);
    QByteArray attribute(const QString &panelPath) const; // without the line end
    int backlight() const; // what the panel last wrote, in percent

    // The image's programs. Every call since the power-on is recorded; a fault stays until
    // restoreTool().
    QVector<ToolCall> calls() const;
    void toolPrints(const QString &tool, const QByteArray &text); // and does nothing; "" is silence
    void toolHangs(const QString &tool);
    void toolMissing(const QString &tool);
    void restoreTool(const QString &tool);

    PanelClock &clock();
    InputEvents &events() // the buzzer
    {
        return *events_;
    }
    // What only the ARM machine has; null for a sandbox.
    Board *board() const
    {
        return board_;
    }
    VncScreen &screen()
    {
        return *screen_;
    }
    quint16 vncPort() const;

    // Touches, as a finger makes them: where the pixel ends up is up to touchPanel() and to the
    // pointer calibration on the panel. Coordinates are pixels of the glass. A viewer's first mouse
    // button is a finger, too, while this thread's events run.
    TouchPanel &touchPanel()
    {
        return touch_;
    }
    void touchPress(const QPoint &spot);
    void touchMove(const QPoint &spot);
    void touchRelease();
    void tap(const QPoint &spot, int holdMs = 60);

signals:
    void powered(bool on);

private:
    void renewPorts();
    void followGadget(VirtualPanel &peer);
    void linkPort(Port id);
    void sampleTouch(const QPoint &spot);
    void viewerTouches(const QPoint &spot, bool held);

    PanelOptions options_;
    std::unique_ptr<QTemporaryDir> temporary_;
    QString folder_, root_;
    std::unique_ptr<QLockFile> lock_; // of the folder
    std::unique_ptr<Machine> machine_; // its power
    Board *board_ = nullptr; // machine_, if it is one
    QThread io_;
    std::array<PtyPort *, portCount> ports_;
    PanelClock *clock_ = nullptr;
    InputEvents *events_ = nullptr;
    VncGate *gate_ = nullptr;
    std::unique_ptr<VncScreen> screen_;
    TouchPanel touch_;
    QPoint pointer_;
    bool viewerHolds_ = false;
};
