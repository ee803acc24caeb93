/* For ARM programs under Debian 12's qemu-arm only. Qt asks the kernel whether children can be
 * waited for through descriptors, which the emulator passes on, and then starts them that way, which
 * the emulator refuses: no QProcess ever starts. This says no to the question, and Qt forks. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <sys/wait.h>

long syscall(long number, ...)
{
    long a[6];
    va_list list;
    va_start(list, number);
    for (int i = 0; i < 6; ++i)
        a[i] = va_arg(list, long);
    va_end(list);
    if (number == SYS_waitid && a[0] == P_PIDFD) {
        errno = ENOSYS;
        return -1;
    }
    long (*next)(long, ...) = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
