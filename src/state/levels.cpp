#include "levels.h"

#include <QByteArray>
#include <cstring>

#define ICT_FLAG_FILE(name) "/usr/local/ict/HMI_" name "_TEST_Flag.txt"

// The two-letter names are padded with a blank in the level file: all its lines are equally long.
const Level levels[LevelCount] = {
    {"ICT", "04", "ICT\n", ICT_FLAG_FILE("ICT"), "T1 \n", IctItemCount, ICT_Item_Status,
     ICT_Item_PASS, ICT_Item_UnPASS},
    {"T1", "01", "T1 \n", ICT_FLAG_FILE("T1"), "BI \n", T1ItemCount, T1_Item_Status, T1_Item_PASS,
     T1_Item_UnPASS},
    {"BI", "02", "BI \n", ICT_FLAG_FILE("BI"), "T2 \n", BiItemCount, BI_Item_Status, BI_Item_PASS,
     BI_Item_UnPASS},
    {"T2", "03", "T2 \n", ICT_FLAG_FILE("T2"), HmiLevelText, T2ItemCount, T2_Item_Status,
     T2_Item_PASS, T2_Item_UnPASS},
};
static_assert(sizeof ICT_FLAG_FILE("ICT") == sizeof g_HMI_TEST_File,
              "the longest path fits exactly");

const Level *findLevel(quint32 level)
{
    return level < LevelCount ? &levels[level] : nullptr;
}

TestLevel levelOfFileText(const char *text)
{
    for (int level = LevelT1; level < LevelCount; ++level) {
        if (strncmp(text, levels[level].fileText, 2) == 0)
            return TestLevel(level);
    }
    return LevelICT;
}

void selectLevel(TestLevel level)
{
    const Level &row = levels[level];
    qstrncpy(g_HMI_TEST_File, row.flagFile, sizeof g_HMI_TEST_File);
    TEST_ITEM = row.itemCount;
    Item_Status = row.status;
    Item_PASS = row.passed;
    Item_UnPASS = row.notPassed;
}
