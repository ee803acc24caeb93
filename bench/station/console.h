#pragma once

#include <QString>

// The terminal of a person who tests. All of it may be used from several threads.

// One line on standard output, never torn by another thread's; red for bad news where the terminal
// can.
void say(const QString &line, bool bad = false);
// The last line, which changes in place while something goes on; empty takes it away. Nothing
// where standard output is no terminal.
void showStatus(const QString &line);
// "PASS" or "FAIL" in large letters on a terminal, else as a line.
void sayVerdict(bool passed);
