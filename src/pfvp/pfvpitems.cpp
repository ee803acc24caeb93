#include "pfvpitems.h"

#include "hwtest/analoginput.h"
#include "system/command.h"
#include "system/files.h"
#include "system/sram.h"

#include <QThread>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

constexpr double NoUpperLimit = std::numeric_limits<double>::infinity();

static bool railPasses(int (*readRail)(double *mV), double lowestV, double highestV)
{
    double mV = 0;
    readRail(&mV);
    const double volts = mV / 1000.0;
    return lowestV <= volts && volts <= highestV;
}

bool rail5VPasses()
{
    return railPasses(readRail5V, 4.75, 5.25);
}

bool rail3V3Passes()
{
    return railPasses(readRail3V3, 3.135, 3.465);
}

bool batteryPasses()
{
    return railPasses(readBattery, 2.95, NoUpperLimit);
}

// --- SRAM ----------------------------------------------------------------------------------------

static QByteArray readSram(File &sram)
{
    QByteArray bytes(SramSize, '\0');
    lseek(sram.fd(), 0, SEEK_SET);
    sram.read(bytes.data(), SramSize);
    return bytes;
}

static QByteArray sramPattern()
{
    QByteArray pattern(SramSize, '\0');
    for (int i = 0; i < SramSize; ++i)
        pattern[i] = char(-i);
    return pattern;
}

bool sramPasses()
{
    File sram(SramDevice, O_RDWR);
    if (!sram.isOpen())
        return false;
    const QByteArray saved = readSram(sram);
    const QByteArray pattern = sramPattern();
    lseek(sram.fd(), 0, SEEK_SET);
    for (int i = 0; i < SramSize; ++i)
        sram.write(pattern.constData() + i, 1); // single accesses on the memory bus
    // What a faulty SRAM holds is left in it, deliberately: the pattern shows where it fails.
    if (readSram(sram) != pattern)
        return false;
    lseek(sram.fd(), 0, SEEK_SET);
    sram.write(saved.constData(), SramSize);
    return true;
}

// --- Network -------------------------------------------------------------------------------------

constexpr int PingLines = 6;
constexpr int PingLineLength = 69;
constexpr int PingLossColumn = 43; // from 0, of the panel's ping: "1 packets transmitted, 1 packets
                                   // received, 0% packet loss"

bool isPingAnswered(const QByteArray &output)
{
    int start = 0;
    for (int i = 0; i < PingLines && start < output.size(); ++i) {
        const int lineEnd = output.indexOf('\n', start);
        const int length = lineEnd < 0 ? output.size() - start : lineEnd + 1 - start;
        // A longer line is read on as the next one.
        const QByteArray line = output.mid(start, qMin(length, PingLineLength));
        if (line.startsWith("1 packets"))
            return line.mid(PingLossColumn, 2) == "0%";
        start += line.size();
    }
    return false;
}

bool pingPeer()
{
    const QByteArray output = runProcess(QStringLiteral("ping -I eth0 -c 1 -w 1 192.168.123.111"));
    QThread::sleep(1);
    return isPingAnswered(output);
}
