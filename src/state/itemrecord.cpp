#include "itemrecord.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

// Length of a record's line, whose field ends before the CR also where no zero byte does.
static size_t lineLength(const char *record)
{
    return strnlen(record, FlagRecordCr);
}

void recordItem(int index, qint32 value)
{
    fp_TEST_Flag = open(g_HMI_TEST_File, O_RDWR | O_CLOEXEC);
    if (fp_TEST_Flag < 0)
        return;
    char record[FlagRecordSize] = {};
    const off_t start = off_t(index) * FlagRecordSize;
    const ssize_t got = index < 0 ? 0 : pread(fp_TEST_Flag, record, sizeof record, start);
    const size_t length = lineLength(record);
    // With no text in the record the last character would be the byte before it, which belongs to
    // its neighbour.
    if (got == FlagRecordSize && length > 0) {
        const char *result = value == ItemPassed ? &Test_Ret_Char[1] : &Test_Ret_Char[0];
        if (pwrite(fp_TEST_Flag, result, 1, start + off_t(length) - 1) == 1)
            sync();
    }
    close(fp_TEST_Flag);
    fp_TEST_Flag = 0;
}

bool isPassed(const QByteArray &record)
{
    if (record.size() != FlagRecordSize)
        return false;
    const size_t length = lineLength(record.constData());
    return length > 0 && record[int(length) - 1] == '1';
}

static bool isItem(int index)
{
    return Item_Status && index >= 0 && index < TEST_ITEM;
}

void setItem(int index, qint32 status)
{
    if (isItem(index))
        Item_Status[index] = status;
}

void recordItem(int index)
{
    if (isItem(index))
        recordItem(index, Item_Status[index]);
}

void setAndRecordItem(int index, qint32 status)
{
    setItem(index, status);
    recordItem(index);
}

void beginTest(int index)
{
    setAndRecordItem(index, ItemRunning);
}

int ItemIndex::atLevel() const
{
    const int table[] = {ict, t1, bi, t2}; // in the order of the level values
    return g_uiHMI_TEST_LEVEL <= LevelT2 ? table[g_uiHMI_TEST_LEVEL] : -1;
}
