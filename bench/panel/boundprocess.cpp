#include "panel/boundprocess.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

void BoundProcess::setupChildProcess()
{
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != starter_) // it has ended already
        _exit(1);
}
