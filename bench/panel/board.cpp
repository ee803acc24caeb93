#include "panel/board.h"

#include "panel/files.h"
#include "panel/interrupt.h"
#include "panel/virtualpanel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

namespace {

// An emulated machine on a busy one.
constexpr int bootMs = 1200000, answerMs = 300000, monitorMs = 300000;

const char stick[] = "/media/sda1", card[] = "/media/mmcblk0p1", cable[] = "/media/sda";

QString madeFolder()
{
    return sharedFile("build/board");
}

} // namespace

Board::Board(const PanelOptions &options, const QString &folder,
             const std::array<PtyPort *, portCount> &ports)
    : folder_(folder + "/board")
    , root_(folder + "/root")
    , ownDisk_(options.ictDisk == IctDisk::own)
    , ports_(ports)
{
    if (QStandardPaths::findExecutable("qemu-system-arm").isEmpty()
        || !QFile::exists(madeFolder() + "/initrd"))
        throw BenchError("There is no ARM machine: make it with tools/board.sh");
    if (options.ictDisk == IctDisk::full || options.ictDisk == IctDisk::readOnly)
        throw BenchError("The ARM machine has no full or read-only disk");
    QDir().mkpath(folder_);
    layOut();
}

Board::~Board()
{
    end();
}

void Board::end()
{
    monitor_.abort();
    machine_.kill();
    machine_.waitForFinished(5000);
}

void Board::factoryNew()
{
    end();
    for (const char *disk : {"/usb.img", "/sd.img", "/ict.img"})
        QFile::remove(folder_ + disk);
    layOut();
}

// The programs of the image are the board's, and what the package brings is not to be the
// sandbox's copy.
void Board::layOut() const
{
    for (const char *folder : {"/var/log", "/mnt/ict_log"})
        QDir().mkpath(root_ + folder);
    QFile::remove(root_ + "/run/bench/toolbox");
    QFile::link("/board/toolbox", root_ + "/run/bench/toolbox");
    for (const char *script : {"log_rdwr.sh", "usb_mode.sh", "start-panel.sh", "check-panel.sh"})
        QFile::remove(root_ + "/usr/local/ict/" + script);
    for (const char *name : {"/usb.img", "/sd.img"}) // one that is there stays
        QFile::copy(madeFolder() + "/medium.img", folder_ + name);
    if (ownDisk_)
        QFile::copy(madeFolder() + "/ict.img", folder_ + "/ict.img");
}

QStringList Board::arguments() const
{
    QString text = readWhole(sharedFile("bench/board/machine.txt"));
    text.replace("{folder}", folder_).replace("{root}", root_).replace("{made}", madeFolder());
    for (Port port : {Port::ttyO1, Port::ttyO3, Port::ttyO4, Port::ttyGS0})
        text.replace(QString("{%1}").arg(portName(port)), portPath(port));
    if (ownDisk_)
        text += "-drive if=none,id=ict,format=raw,file=" + folder_
            + "/ict.img\n-device virtio-blk-pci,drive=ict,serial=ict\n";
    QStringList args;
    for (const QString &line : text.split('\n', Qt::SkipEmptyParts)) {
        if (!line.startsWith('#'))
            args << line.section(' ', 0, 0) << line.section(' ', 1);
    }
    args.removeAll({}); // of options without a value
    return args;
}

void Board::launch()
{
    for (const char *file : {"/monitor", "/shell", "/vnc"})
        QFile::remove(folder_ + file);
    // Of a pipe, which the PC link is to the emulator, it does not learn the speed.
    QProcess::execute("stty", {"-F", portPath(Port::ttyO1), "9600"});
    machine_.setProcessChannelMode(QProcess::MergedChannels);
    machine_.setStandardOutputFile(folder_ + "/emulator.log");
    machine_.start("qemu-system-arm", QStringList("-S") + arguments());
    connectTo(&monitor_, "monitor");
    monitor("qmp_capabilities");
    monitor("blockdev-add",
            {{"driver", "raw"},
             {"node-name", "usb"},
             {"file", QJsonObject{{"driver", "file"}, {"filename", folder_ + "/usb.img"}}}});
    for (const char *medium : {stick, card})
        applyPresence(medium, !away_.contains(medium));
    plugAdapter();
}

void Board::connectTo(QLocalSocket *socket, const QString &name)
{
    QElapsedTimer clock;
    clock.start();
    do {
        socket->connectToServer(folder_ + '/' + name);
        if (socket->waitForConnected(100))
            return;
        QThread::msleep(20);
    } while (machine_.state() != QProcess::NotRunning && clock.elapsed() < monitorMs);
    throw BenchError("The ARM machine did not start: "
                     + readWhole(folder_ + "/emulator.log").trimmed());
}

QJsonObject Board::monitor(const QString &command, const QJsonObject &arguments)
{
    const QJsonObject request{{"execute", command}, {"arguments", arguments}};
    monitor_.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
    monitor_.flush();
    QElapsedTimer clock;
    clock.start();
    while (monitor_.state() == QLocalSocket::ConnectedState && clock.elapsed() < monitorMs) {
        if (!monitor_.canReadLine() && !monitor_.waitForReadyRead(100))
            continue;
        const QJsonObject answer = QJsonDocument::fromJson(monitor_.readLine()).object();
        if (answer.contains("error"))
            throw BenchError(QString("The ARM machine refuses %1: %2")
                                 .arg(command, answer["error"].toObject()["desc"].toString()));
        if (answer.contains("return")) // else a greeting or an event
            return answer["return"].toObject();
    }
    throw BenchError("The ARM machine does not answer its monitor's " + command + ": see " + folder_
                     + "/emulator.log");
}

void Board::start(const QStringList &agentArgs)
{
    const QString mode = root_ + "/run/bench/mode";
    QFile::remove(mode);
    if (!agentArgs.isEmpty())
        writeInPlace(mode, agentArgs.join(' ').toUtf8());
    QFile::remove(root_ + "/var/log/ict-panel.log");
    if (machine_.state() == QProcess::NotRunning)
        launch();
    else
        monitor("system_reset");
    on_ = true;
    monitor("cont");
    awaitBoot();
}

void Board::awaitBoot()
{
    QElapsedTimer clock;
    clock.start();
    while (!QFile::exists(root_ + "/run/bench/booted")) {
        if (machine_.state() == QProcess::NotRunning || clock.elapsed() > bootMs)
            throw BenchError("The ARM machine did not boot: see " + folder_ + "/console.log");
        endIfInterrupted();
        machine_.waitForFinished(20);
    }
    shell_.abort();
    connectTo(&shell_, "shell");
    for (const QString &path : qAsConst(away_)) {
        if (path != stick && path != card)
            applyPresence(path, false);
    }
}

void Board::stop()
{
    if (!on_)
        return;
    on_ = false;
    try {
        monitor("stop");
    } catch (const BenchError &) { // gone, or stuck: off all the same
        end();
    }
    emit ended();
}

int Board::waitForEnd(int)
{
    throw BenchError("On the ARM machine the agent does not end: the init script starts it again");
}

qint64 Board::agentPid() const
{
    throw BenchError("The ARM machine's processes are not this machine's");
}

// The marks cannot be part of what a command prints: it is typed in two halves.
QByteArray Board::run(const QString &command, int *status)
{
    if (!on_)
        throw BenchError("The ARM machine is off");
    shell_.readAll();
    shell_.write(command.toUtf8() + "\nprintf '\\001%d\\002' $?\n");
    shell_.flush();
    QByteArray answer;
    QElapsedTimer clock;
    clock.start();
    while (!answer.endsWith('\2')) {
        if (shell_.state() != QLocalSocket::ConnectedState || clock.elapsed() > answerMs)
            throw BenchError("The ARM machine does not answer: " + command + ": " + answer);
        shell_.waitForReadyRead(100);
        answer += shell_.readAll();
    }
    const int mark = answer.lastIndexOf('\1');
    if (status)
        *status = answer.mid(mark + 1).chopped(1).toInt();
    return answer.left(mark);
}

// An open port raises DTR. The ram disk takes seconds from the script's start over gadget and USB
// host to its mount.
bool Board::isReady(PtyPort *port)
{
    if (port->id() > Port::ttyO4)
        throw BenchError(QString("On the ARM machine %1 does not tell who has it open")
                             .arg(portName(port->id())));
    int status = 0;
    run(QString("grep -q '^%1:.*DTR' /proc/tty/driver/serial && grep -q ' %2 ' /proc/mounts")
            .arg(int(port->id()))
            .arg(away_.contains(cable) ? "/" : cable),
        &status);
    return status == 0;
}

// The cable in the USB host port has an FTDI adapter.
bool Board::setPlugged(Port, const QString &device)
{
    const bool started = machine_.state() != QProcess::NotRunning;
    if (started && !adapter_.isEmpty())
        monitor("device_del", {{"id", QString("adapter%1").arg(adapters_)}});
    adapter_ = device;
    if (started)
        plugAdapter();
    return true;
}

void Board::plugAdapter()
{
    if (adapter_.isEmpty())
        return;
    const QString id = QString("adapter%1").arg(++adapters_);
    const QJsonObject data{{"device", adapter_}};
    monitor("chardev-add",
            {{"id", id}, {"backend", QJsonObject{{"type", "serial"}, {"data", data}}}});
    monitor("device_add",
            {{"driver", "usb-serial"}, {"id", id}, {"bus", "usb.0"}, {"chardev", id}});
}

void Board::setGadget(bool plugged)
{
    if (!plugged)
        throw BenchError("On the ARM machine ttyGS0 cannot be unplugged");
}

// As a serial device to the emulator the link's pty has no CTS, as a pipe it is always on.
void Board::holdCts(bool ready)
{
    const QString path = portPath(Port::ttyO1);
    const QJsonObject device{{"device", path}};
    monitor("chardev-change",
            {{"id", "link"},
             {"backend", QJsonObject{{"type", ready ? "pipe" : "serial"}, {"data", device}}}});
}

bool Board::setPresent(const QString &panelPath, bool present)
{
    if (!QStringList{stick, card, cable}.contains(panelPath) && !panelPath.startsWith("/dev/"))
        return false;
    if (present != away_.contains(panelPath))
        return true;
    if (present)
        away_.remove(panelPath);
    else
        away_.insert(panelPath);
    const bool started = machine_.state() != QProcess::NotRunning;
    if (on_ || (started && (panelPath == stick || panelPath == card)))
        applyPresence(panelPath, present);
    return true;
}

void Board::applyPresence(const QString &panelPath, bool present)
{
    if (panelPath == stick && present)
        monitor("device_add",
                {{"driver", "usb-storage"}, {"id", "stick"}, {"bus", "usb.0"}, {"drive", "usb"}});
    else if (panelPath == stick)
        monitor("device_del", {{"id", "stick"}});
    else if (panelPath == card && present)
        monitor("blockdev-change-medium",
                {{"id", "card"}, {"filename", folder_ + "/sd.img"}, {"format", "raw"}});
    else if (panelPath == card)
        monitor("eject", {{"id", "card"}, {"force", true}});
    else if (panelPath == cable)
        run(QString("echo %1 >/sys/kernel/config/usb_gadget/ramdisk/UDC")
                .arg(present ? "dummy_udc.0" : "''"));
    else
        run(QString(present ? "mv %1.away %1" : "mv %1 %1.away").arg(panelPath));
}

QByteArray Board::printed(const QString &) const
{
    return readWhole(root_ + "/var/log/ict-panel.log");
}
