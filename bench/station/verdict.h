#pragma once

#include "station/codec.h"
#include "station/link.h"
#include "station/plan.h"

#include <QJsonArray>

// What an answer means, and what is wrong with it.
struct Verdict {
    Reply reply;
    QString meaning;
    QStringList faults; // in words; empty: passed
    QJsonArray measured; // the values in it, as docs/bench.md describes them
    bool unanswered = false;
    QString advice; // what to look at; empty when nobody knows
};

// `level` is the panel's, `number` its station number. `strict`: noise before a good reply is a
// fault, and so is a request that had to be repeated.
struct Judging {
    int level, number;
    bool strict;
};
Verdict judge(const Step &step, const Link::Answer &answer, const Values &values,
              const Judging &by);
// Whether the answer that a step expects is a frame.
bool expectsFrame(const Step &step);
