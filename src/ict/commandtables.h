// Every request that the panel takes, at every level: a row each, in the order of comparison.
#pragma once

#include "longrequests.h"

#include <QtGlobal>
#include <vector>

class MainWindow;

// A request of one short frame: four-character code, handler, the handler's argument. No code
// stands in two tables that are searched for the same frame.
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

// Where a long request is known.
enum LinkLevels { AnyLevel, AllButBi };

// A request known by how it starts. It carries data after the code, so its length must be known
// before anything can be checked, and its handler checks it by its own rules.
struct LongRequest {
    const char *start;
    RequestEnd (*readRest)(); // after the first eleven bytes
    LinkLevels levels;
    void (MainWindow::*run)(); // null: the request is ignored
};

// The row that the first bytes of `text` fit at `level`; null if it is none of these requests.
const LongRequest *findLongRequest(quint32 level, const char *text);
