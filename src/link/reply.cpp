#include "reply.h"

#include "factorylog.h"
#include "frame.h"
#include "serialports.h"
#include "state/runstate.h"
#include "system/files.h"

#include <cstring>
#include <fcntl.h>

void setLinkBuffer(char (&buffer)[LinkBufferSize], const QByteArray &text)
{
    memset(buffer, 0, sizeof buffer);
    memcpy(buffer, text.constData(), size_t(qMin(text.size(), LinkBufferSize - 1)));
}

qint32 linkReadFd()
{
    return g_uiHMI_TEST_LEVEL == LevelBI ? Com2OpenRS4xx_R_fd2 : Com1OpenRS232_R_fd2;
}

qint32 linkWriteFd()
{
    return g_uiHMI_TEST_LEVEL == LevelBI ? Com2OpenRS4xx_W_fd2 : Com1OpenRS232_W_fd2;
}

int sendReply(const QByteArray &payload, bool ownStation)
{
    QByteArray station("00");
    if (ownStation) {
        // Read and write, deliberately: a file that cannot be written counts as none.
        File file(StationFilePath, O_RDWR);
        if (!file.isOpen())
            return file.fd();
        char digits[3] = {};
        file.read(digits, 2);
        station = hexByte(byteOfHex(digits));
    }
    const QByteArray frame = buildFrame(station, payload);
    writePort(linkWriteFd(), frame.constData(), frame.size());
    setLinkBuffer(UART_Buffer_ShowOutInfo, frame);
    return factoryLog(nullptr);
}

int sendReply(const QByteArray &payload)
{
    return sendReply(payload, g_iSTATION_NUM != 0);
}

void sendRaw(const QByteArray &text)
{
    sendRaw(linkWriteFd(), text, text.size());
}

void sendRaw(qint32 fd, const QByteArray &text, int sent)
{
    writePort(fd, text.constData(), sent);
    setLinkBuffer(UART_Buffer_ShowOutInfo, text);
}
