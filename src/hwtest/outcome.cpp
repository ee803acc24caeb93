#include "outcome.h"

#include "link/reply.h"
#include "state/itemrecord.h"

void replyOutcome(int item, bool passed, const QByteArray &passCode, const QByteArray &failCode)
{
    sendReply(passed ? passCode : failCode);
    if (passed)
        setItem(item, ItemPassed);
    recordItem(item);
}
