// Preloaded into the agent that `bench effects` traces. The tracer prints a driver's structures by
// address only; writing their bytes to a descriptor that cannot exist shows them in the trace, and
// changes nothing.
#include <cstdarg>
#include <dlfcn.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void *argument = va_arg(list, void *);
    va_end(list);
    if (request == TIOCSRS485)
        syscall(SYS_write, -2, argument, sizeof(serial_rs485));
    if (request == TIOCSSERIAL)
        syscall(SYS_write, -2, argument, sizeof(serial_struct));
    const auto next = reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    return next(fd, request, argument);
}
