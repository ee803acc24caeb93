// Which command code runs which handler, at which level. The tables are data: a reader sees every
// command of every level as a row, in the order of comparison.
#pragma once

#include "state/teststate.h"

#include <vector>

class MainWindow;

// A row: four-character code, handler, the handler's argument. No code stands in two tables that
// are searched for the same frame.
struct Command {
    using Handler = void (MainWindow::*)();
    using HandlerWithArgument = void (MainWindow::*)(int);

    constexpr Command(const char *code, Handler run)
        : code(code)
        , plain(run)
    {
    }
    constexpr Command(const char *code, HandlerWithArgument run, int argument)
        : code(code)
        , withArgument(run)
        , argument(argument)
    {
    }

    void run(MainWindow &window) const
    {
        withArgument ? (window.*withArgument)(argument) : (window.*plain)();
    }

    const char *code;
    Handler plain = nullptr;
    HandlerWithArgument withArgument = nullptr;
    int argument = 0;
};

// A table as a range.
struct CommandTable {
    const Command *first;
    int count;

    const Command *begin() const
    {
        return first;
    }
    const Command *end() const
    {
        return first + count;
    }
};

// The tables searched for a frame at `level`, in order.
std::vector<CommandTable> commandTables(quint32 level);

// Runs the handlers of `code` that `level` allows.
void dispatchCode(MainWindow &window, quint32 level, const char *code);
