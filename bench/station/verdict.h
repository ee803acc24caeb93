#pragma once

#include "station/codec.h"
#include "station/link.h"
#include "station/plan.h"

struct StepResult {
    Step step;
    QByteArray request;
    Link::Answer answer;
    Reply reply;
    QString meaning;
    QStringList faults; // empty: passed
    QStringList earlier; // faults of the attempts before, when it was tried again
    double overheadMs() const
    {
        return answer.ms - step.waitMs;
    }
    QString advice() const; // what to look at; empty when it passed, or nobody knows
    bool unanswered() const
    {
        return !answer.error.isEmpty()
            || (reply.kind == Reply::None && step.expect != Step::Silence);
    }
};

// Decodes the answer and adds what is wrong with it, in words. `number`: the panel's station
// number. `strict`: noise before a good reply is a fault, and so is a request that had to be
// repeated.
void judge(StepResult *result, int level, const Values &values, int number, bool strict);
