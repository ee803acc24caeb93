// Bytes on the PC link of a booted panel at each level, and the files that requests read back.
//
//   byte 0      bits 0-1 the level, bit 2: check digits are put right first
//   then        the text of both touch value files, to the first byte 0xff
//   the rest    what comes over the line
#include "fuzz/panel.h"
#include "fuzz/require.h"
#include "hwtest/idframe.h"
#include "link/frame.h"
#include "state/levels.h"

#include <QMetaObject>
#include <ctime>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

MainWindow *window;
int line[2]; // the panel's end, the station's
int pauses; // that the agent made since the last byte

// A request's check digits as its sender would have written them.
void putRight(QByteArray &bytes)
{
    if (bytes.size() >= ShortFrameSize && bytes[0] == ':')
        bytes.replace(7, 2, hexByte(lrcOfHexPairs(bytes.constData() + 1, 6)));
    const int end = bytes.indexOf("\r\n");
    if (bytes.startsWith(":0006") && end >= ShortFrameSize)
        bytes.replace(end - 2, 2, hexByte(lrcOfCharacters(bytes.constData() + 1, end - 3)));
}

// The passes of a calibration need a user and an event loop.
bool isCalibration(const QByteArray &bytes)
{
    return bytes.contains("9000") || bytes.contains("9004") || bytes.contains("9001");
}

} // namespace

// No pause is waited for, and a line that has been quiet for long says something: a sender that
// stopped in the middle of an identity is waited for without end.
extern "C" int clock_nanosleep(clockid_t, int, const timespec *, timespec *)
{
    if (++pauses % 64 == 0)
        send(line[1], "\n", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    return 0;
}
extern "C" int nanosleep(const timespec *, timespec *)
{
    return clock_nanosleep(CLOCK_MONOTONIC, 0, nullptr, nullptr);
}
extern "C" int usleep(useconds_t)
{
    return clock_nanosleep(CLOCK_MONOTONIC, 0, nullptr, nullptr);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startToolkit();
    putFile("/usr/local/ict/HMI_STATION_NUM.txt", "05");
    window = new MainWindow;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const quint8 *data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    const int files = bytes.indexOf('\xff');
    if (files < 1 || isCalibration(bytes))
        return 0;
    const auto level = TestLevel(data[0] & 3);
    putFile("/usr/local/ict/T1_TP_Value.txt", bytes.mid(1, files - 1));
    putFile("/usr/local/ict/T2_TP_Value.txt", bytes.mid(1, files - 1));
    bytes.remove(0, files + 1);
    if (data[0] & 4)
        putRight(bytes);
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, line) == 0);
    selectLevel(level);
    g_uiHMI_TEST_LEVEL = level;
    g_bTestAllow = true;
    Com1OpenRS232_R_fd2 = Com1OpenRS232_W_fd2 = line[0];
    Com2OpenRS4xx_R_fd2 = Com2OpenRS4xx_W_fd2 = level == LevelBI ? line[0] : 0;
    Com1OpenRS4xx_R_fd2 = Com1OpenRS4xx_W_fd2 = 0;
    send(line[1], bytes.constData(), size_t(bytes.size()), MSG_DONTWAIT);
    for (int ticks = 0; ticks < 6; ++ticks)
        QMetaObject::invokeMethod(window, "ICTTestLoop", Qt::DirectConnection);
    QCoreApplication::processEvents();
    close(line[0]);
    close(line[1]);
    return 0;
}
