#include "print.h"

#include <cstdarg>
#include <cstdio>

void printNow(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    fflush(stdout);
}
