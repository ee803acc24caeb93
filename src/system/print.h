// Messages on standard output.
#pragma once

// printf for the texts that have no line end of their own: standard output is line-buffered, and a
// panel whose power is cut shall have said them.
[[gnu::format(printf, 1, 2)]] void printNow(const char *format, ...);
