#pragma once

#include <sched.h>

// Puts the calling thread before what else runs on this machine, where its user may ask for that.
// The programs that it starts run as usual.
inline void runBeforeAllElse()
{
    const sched_param lowest{sched_get_priority_min(SCHED_RR)};
    sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &lowest);
}

// The same for as long as it lives. For a thread that starts a program: until its memory is copied
// no other thread of this one goes on, and when it is pushed aside in the middle of that, on a busy
// machine, the ports' threads are late by a tenth of a second or several.
class Urgently {
public:
    Urgently()
        : policy_(sched_getscheduler(0))
    {
        sched_getparam(0, &priority_);
        runBeforeAllElse();
    }
    ~Urgently()
    {
        sched_setscheduler(0, policy_ | SCHED_RESET_ON_FORK, &priority_);
    }
    Urgently(const Urgently &) = delete;

private:
    const int policy_;
    sched_param priority_{};
};
