#include "panel/virtualpanel.h"
#include "panel/board.h"
#include "panel/files.h"
#include "panel/panelimage.h"
#include "panel/sandbox.h"
#include "panel/urgency.h"
#include "panel/vncgate.h"

#include <QDir>
#include <QFileInfo>

#include <utility>

namespace {

// Creates an object of the I/O thread there. Exceptions of the constructor reach the caller, for
// the constructor runs here; its timers and notifiers start with the move.
template <typename T> T *inThread(QThread &thread, T *object)
{
    object->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, object, &QObject::deleteLater);
    return object;
}

PanelOptions withAgent(PanelOptions options)
{
    if (options.agent.isEmpty()) {
        options.agent = qEnvironmentVariable("BENCH_AGENT", programFolder() + "/ict-agent");
        options.agentRoot = qEnvironmentVariable("BENCH_AGENT_ROOT");
    }
    return options;
}

std::unique_ptr<QLockFile> lockFolder(const QString &folder)
{
    auto lock = std::make_unique<QLockFile>(folder + "/lock");
    lock->setStaleLockTime(0); // but of a process that is no more it is taken over
    if (lock->tryLock())
        return lock;
    qint64 pid = 0;
    QString host, program;
    lock->getLockInfo(&pid, &host, &program);
    throw BenchError(pid ? QString("A panel runs in %1 already (process %2): end it or take "
                                   "another folder")
                               .arg(folder)
                               .arg(pid)
                         : QString("The panel's folder %1 cannot be written: check that it is "
                                   "yours")
                               .arg(folder));
}

} // namespace

void useArmAgent()
{
    qputenv("BENCH_AGENT", QFile::encodeName(dataFolder() + "/build/arm/ict-agent"));
    qputenv("BENCH_AGENT_ROOT", QFile::encodeName(dataFolder() + "/build/arm-root"));
}

void useBoard()
{
    qputenv("BENCH_BOARD", "1");
}

bool boardWanted()
{
    return qEnvironmentVariableIsSet("BENCH_BOARD");
}

VirtualPanel::VirtualPanel(const PanelOptions &options, QObject *parent)
    : QObject(parent)
    , options_(withAgent(options))
    , folder_(options.folder)
{
    if (folder_.isEmpty()) {
        temporary_ = std::make_unique<QTemporaryDir>(QDir::tempPath() + "/ict-panel-XXXXXX");
        if (!temporary_->isValid())
            throw BenchError(QString("No folder can be made in %1: let TMPDIR name one of yours")
                                 .arg(QDir::tempPath()));
        folder_ = temporary_->path();
    }
    folder_ = QFileInfo(folder_).absoluteFilePath();
    if (QFileInfo(folder_).canonicalFilePath() == "/") // root would be the superuser's home
        throw BenchError("The machine's own \"/\" is no panel's folder: name another");
    root_ = folder_ + "/root";
    QDir().mkpath(folder_);
    lock_ = lockFolder(folder_);
    const QString socket = options_.board ? Board::vncSocket(folder_) : hostPath("/run/bench/vnc");
    if (QFile::encodeName(socket).size() > 100) // a socket's path has 108 bytes
        throw BenchError(QString("The panel's folder %1 has too long a path: choose a shorter one")
                             .arg(folder_));

    io_.setObjectName("panel I/O");
    // A fixture is a machine of its own: the panel waits 100 ms for some of its answers.
    connect(&io_, &QThread::started, runBeforeAllElse);
    // Objects that were created before one of them throws need the thread to be deleted in.
    io_.start();
    try {
        for (int i = 0; i < portCount; ++i)
            ports_[size_t(i)] = inThread(io_, new PtyPort(Port(i)));
        port(Port::ttyUSB0)->setPlugged(false);
        layOutPanel(root_);
        clock_ = inThread(
            io_, new PanelClock(hostPath("/run/bench/clock"), hostPath(attribute::sinceEpoch)));
        events_ = inThread(io_, new InputEvents(hostPath("/dev/input/event1")));
        gate_ = inThread(io_, new VncGate(options_.vncPort, socket));
        connect(gate_, &VncGate::pointer, this, &VirtualPanel::viewerTouches);
        screen_ = std::make_unique<VncScreen>(socket);
        if (options_.board)
            machine_.reset(board_ = new Board(options_, folder_, ports_));
        else
            machine_ = std::make_unique<Sandbox>(options_, folder_);
    } catch (...) {
        io_.quit();
        io_.wait();
        throw;
    }
    connect(machine_.get(), &Machine::ended, this, [this] {
        screen_->disconnect();
        emit powered(false);
    });
}

VirtualPanel::~VirtualPanel()
{
    powerOff();
    screen_.reset();
    io_.quit();
    io_.wait();
}

void VirtualPanel::factoryNew()
{
    if (isOn())
        throw BenchError("The panel must be off to be made factory-new");
    clearPanel(root_);
    layOutPanel(root_);
    if (board_)
        board_->factoryNew();
}

void VirtualPanel::powerOn(const QStringList &agentArgs)
{
    if (isOn())
        return;
    clearVolatile(root_);
    setAttribute(attribute::backlight, "100");
    clock_->powerOn();
    if (!machine_->keepsPorts())
        renewPorts();
    machine_->start(agentArgs);
    emit powered(true);
}

// Each with a pty of its own: nothing of the last power-up is left on the line.
void VirtualPanel::renewPorts()
{
    for (const PtyPort *port : ports_)
        setPlugged(port->id(), port->id() != Port::ttyUSB0 || !port->panelPath().isEmpty());
}

void VirtualPanel::powerCycle(const QStringList &agentArgs)
{
    powerOff();
    powerOn(agentArgs);
}

PanelClock &VirtualPanel::clock()
{
    if (board_)
        throw BenchError("The ARM machine has an RTC of its own, which the bench does not set");
    return *clock_;
}

void VirtualPanel::setPlugged(Port id, bool plugged)
{
    if (board_ && id == Port::ttyGS0)
        return board_->setGadget(plugged);
    port(id)->setPlugged(false);
    port(id)->setPlugged(plugged);
    if (!machine_->setPlugged(id, port(id)->panelPath()))
        linkPort(id);
}

void VirtualPanel::cable(VirtualPanel &a, Port ofA, VirtualPanel &b, Port ofB)
{
    PtyPort::join({a.port(ofA), b.port(ofB)});
    if (ofA == Port::ttyGS0)
        b.followGadget(a);
    if (ofB == Port::ttyGS0)
        a.followGadget(b);
}

// A USB host sees the device while the peer has power, and the peer's gadget port hangs up when the
// host goes.
void VirtualPanel::followGadget(VirtualPanel &peer)
{
    setPlugged(Port::ttyUSB0, peer.isOn());
    connect(&peer, &VirtualPanel::powered, this,
            [this](bool on) { setPlugged(Port::ttyUSB0, on); });
    connect(this, &VirtualPanel::powered, &peer, [&peer](bool on) {
        if (!on && peer.isOn())
            peer.setPlugged(Port::ttyGS0, true);
    });
}

// Names a port's pty by its place inside the panel.
void VirtualPanel::linkPort(Port id)
{
    const bool usb = id == Port::ttyUSB0 || id == Port::ttyGS0;
    const QString file = hostPath((usb ? "/dev/plugged/" : "/dev/") + QString(portName(id))),
                  path = port(id)->panelPath();
    QFile::remove(file);
    if (!path.isEmpty())
        QFile::link((usb ? "../pts/" : "pts/") + path.section('/', -1), file);
}

void VirtualPanel::setPresent(const QString &panelPath, bool present)
{
    if (machine_->setPresent(panelPath, present))
        return;
    const QString here = hostPath(panelPath), away = here + ".away";
    QFile::rename(present ? away : here, present ? here : away);
}

QString VirtualPanel::hostPath(const QString &panelPath) const
{
    // With a full disk the files lie in the panel's own memory.
    const bool inside = options_.ictDisk == IctDisk::full && machine_ && agentPid()
        && panelPath.startsWith("/usr/local/ict");
    return (inside ? QString("/proc/%1/root").arg(agentPid()) : root_) + panelPath;
}

QByteArray VirtualPanel::readFile(const QString &panelPath) const
{
    return readWhole(hostPath(panelPath));
}

void VirtualPanel::writeFile(const QString &panelPath, const QByteArray &content)
{
    QFile file(hostPath(panelPath));
    QDir().mkpath(QFileInfo(file).path());
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw BenchError(QString("Cannot write %1: %2").arg(file.fileName(), file.errorString()));
}

void VirtualPanel::setAttribute(const QString &panelPath, const QByteArray &value)
{
    if (!writeInPlace(hostPath(panelPath), value + '\n'))
        throw BenchError(QString("Cannot write the attribute %1").arg(hostPath(panelPath)));
}

QByteArray VirtualPanel::attribute(const QString &panelPath) const
{
    return readFile(panelPath).trimmed();
}

void VirtualPanel::setLevel(const QString &level)
{
    writeFile(levelFile, level.leftJustified(3).toLatin1() + '\n');
}

Port VirtualPanel::link() const
{
    return readFile(levelFile).startsWith("BI") ? Port::ttyO3 : Port::ttyO1;
}

int VirtualPanel::backlight() const
{
    // The panel writes it through the shell, which empties the file first.
    QByteArray text;
    for (int i = 0; i < 20 && (text = attribute(attribute::backlight)).isEmpty(); ++i)
        QThread::msleep(1);
    return text.toInt();
}

quint16 VirtualPanel::vncPort() const
{
    return gate_->port();
}

// The ADC first: the agent reads it when the pointer event reaches it.
void VirtualPanel::sampleTouch(const QPoint &spot)
{
    const QPoint raw = touch_.raw(spot);
    setAttribute(attribute::adcX, QByteArray::number(raw.x()));
    setAttribute(attribute::adcY, QByteArray::number(raw.y()));
    pointer_ = TouchPanel::pixel(raw, readFile("/etc/pointercal"));
}

void VirtualPanel::touchPress(const QPoint &spot)
{
    sampleTouch(spot);
    setAttribute(attribute::pressure, "350");
    // The first report that the evdev plugin gets counts at (0, 0): it may not be the press.
    if (board_)
        screen_->pointer(pointer_, false);
    screen_->pointer(pointer_, true);
}

void VirtualPanel::touchMove(const QPoint &spot)
{
    sampleTouch(spot);
    screen_->pointer(pointer_, true);
}

void VirtualPanel::touchRelease()
{
    setAttribute(attribute::pressure, QByteArray::number(touch_.restPressure));
    screen_->pointer(pointer_, false);
}

// A mouse without a button held is no finger.
void VirtualPanel::viewerTouches(const QPoint &spot, bool held)
{
    const bool before = std::exchange(viewerHolds_, held && isOn());
    if (viewerHolds_)
        before ? touchMove(spot) : touchPress(spot);
    else if (before)
        touchRelease();
}

void VirtualPanel::tap(const QPoint &spot, int holdMs)
{
    touchPress(spot);
    ::waitFor([] { return false; }, holdMs);
    touchRelease();
}
