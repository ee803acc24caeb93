#include "longrequests.h"

#include "link/frame.h"
#include "link/reply.h"
#include "link/serialports.h"

constexpr int LastTextByte = LinkBufferSize - 1; // index of the NUL of a full buffer

static RequestEnd readMore(int count)
{
    return readExactly(linkReadFd(), UART_Buffer + ShortFrameSize, count) ? RequestEnd::Complete
                                                                          : RequestEnd::Incomplete;
}

RequestEnd readNothingMore()
{
    return RequestEnd::Complete;
}

RequestEnd readClockRequest()
{
    return readMore(12);
}

RequestEnd readMachineId()
{
    const RequestEnd start = readMore(17);
    if (start != RequestEnd::Complete)
        return start;
    int last = ShortFrameSize + 17 - 1;
    while (UART_Buffer[last] != '\n') {
        char byte;
        if (!readExactly(linkReadFd(), &byte, 1))
            continue;
        if (last + 1 >= LastTextByte)
            return RequestEnd::Abandoned;
        UART_Buffer[++last] = byte;
    }
    return RequestEnd::Complete;
}

RequestEnd readSemiMachineId()
{
    constexpr int LastIndex = 29;
    const RequestEnd start = readMore(12);
    if (start != RequestEnd::Complete)
        return start;
    for (int i = ShortFrameSize + 12 - 1; i <= LastIndex && UART_Buffer[i] != '\n'; ++i) {
        if (!readExactly(linkReadFd(), UART_Buffer + i + 1, 1))
            return RequestEnd::Abandoned;
    }
    return RequestEnd::Complete;
}
