// How a test ends that is answered by one code if it passed and another if not.
#pragma once

#include <QByteArray>

// Replies `passCode` or `failCode`, sets the item to passed on a pass (a failed one stays as
// beginTest() left it) and records it in either case.
void replyOutcome(int item, bool passed, const QByteArray &passCode, const QByteArray &failCode);
