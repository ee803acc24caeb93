// An item's result on disk: one byte in the item's 64-byte record of the active level's flag file.
#pragma once

#include "runstate.h"

#include <QByteArray>
#include <QtGlobal>

// Flag file record: the item's not-passed line from byte 0, zero bytes, CR at 62, LF at 63.
constexpr int FlagRecordSize = 64;
constexpr int FlagRecordCr = 62;
constexpr int FlagRecordLf = 63;

// Puts '1' over the last character of item `index`'s line if `value` is exactly 1, else 'F', and
// syncs; never behind the line's field. Silent on every failure; a record that is missing, cut
// short or empty is left alone.
void recordItem(int index, qint32 value);

// Whether a record of the flag file says "passed"; one that is cut short does not, whatever
// character it happens to end in.
bool isPassed(const QByteArray &record);

// Sets Item_Status[index]; an index outside the active level's table (-1: no such item at this
// level) is ignored. The second also records the new status.
void setItem(int index, qint32 status);
void setAndRecordItem(int index, qint32 status);

// Records the status as it stands.
void recordItem(int index);

// Begins a test: the item is running, on disk too, so that one that never finishes is left as 'F'
// whatever it was before. Every handler that sets its item to running does so with this, before it
// tests; nothing else sets ItemRunning.
void beginTest(int index);

// Where one test stands in each level's table; -1 where the level has no such item.
struct ItemIndex {
    int ict, t1, bi, t2;

    // The index at the level this run is at; -1 at any other level.
    int atLevel() const;
};
