#pragma once

#include <sched.h>

// Puts the calling thread before what else runs on this machine, where its user may ask for that.
// The programs that it starts run as usual.
inline void runBeforeAllElse()
{
    const sched_param lowest{sched_get_priority_min(SCHED_RR)};
    sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &lowest);
}

// The same for as long as it lives. For a thread that starts a program: until the memory of this
// one is copied, none of its other threads goes on that asks for some. When the starter was pushed
// aside in the middle of that, on a busy machine, the ports' threads were late by a tenth of a
// second.
class Urgently {
public:
    Urgently()
        : policy_(sched_getscheduler(0))
    {
        sched_getparam(0, &priority_);
        runBeforeAllElse();
    }
    // What programs are started with stays: not every user may take it back.
    ~Urgently()
    {
        sched_setscheduler(0, policy_ | SCHED_RESET_ON_FORK, &priority_);
    }
    Urgently(const Urgently &) = delete;

private:
    const int policy_;
    sched_param priority_{};
};
