#pragma once

#include <QString>

// Where the bench finds what it needs at run time: in the package that the running program was
// installed from, else in the checkout that it was built in.

// The data, laid out as the source tree: bench/plans, bench/panel/tools, image.
QString dataFolder();

// The programs ict-agent and bench-window.
QString programFolder();
