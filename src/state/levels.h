// The four test levels, one table row each.
#pragma once

#include "runstate.h"

constexpr char LevelFilePath[] = "/usr/local/ict/HMI_TEST_LEVEL.txt";
constexpr char HmiLevelText[] = "HMI\n"; // all four levels passed
constexpr char HmiWireCode[] = "00";

struct Level {
    const char *name; // as the resume log and the replies spell it
    const char *wireCode; // two digits in commands and replies, not the numeric value
    const char *fileText; // line of the level file, four bytes
    const char *flagFile;
    const char *next; // line of the level file once the level is passed
    int itemCount;
    qint32 *status;
    const QString *passed, *notPassed;
};

constexpr int LevelCount = 4;
extern const Level levels[LevelCount]; // indexed by TestLevel

// The row of `level`, or null for the calibration levels and anything unknown.
const Level *findLevel(quint32 level);

// The level whose file text begins with the two characters of `text`; ICT for any other text, so
// also for "HMI" and for an empty file.
TestLevel levelOfFileText(const char *text);

// Makes `level` the active one: TEST_ITEM, g_HMI_TEST_File and the three table pointers.
void selectLevel(TestLevel level);
