// The operations that change the test level, on disk only: the running agent keeps its level until
// it is started again.
#pragma once

#include "state/levels.h"

#include <initializer_list>

// Index of the extended T1 end check, whose result goes into the T1 end item.
constexpr int ExtendedT1Check = -1;

// What the level file holds for no level; the next boot takes it for ICT.
constexpr char NoLevelText[] = "";

// Makes `text` (four bytes, or NoLevelText) the level file's, after the flag files of `restarted`,
// the levels that start with nothing passed, are gone. All of it is on the medium on return. False
// when the file could not be opened, with nothing touched, or did not take the text.
bool changeLevel(const char *text, std::initializer_list<const Level *> restarted);

// Puts the panel back to T1 for another round of tests, and says so in the resume log. False when
// the level could not be changed.
bool goBackToT1();
