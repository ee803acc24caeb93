#pragma once

// Lets Ctrl-C (and SIGTERM, SIGHUP) end the application's event loop, so that destructors switch
// the panels off and remove their temporary folders. A second one kills at once, which leaves no
// process behind either.
void quitOnInterrupt();
// Whether that has happened, for loops that do not run on the event loop.
bool interrupted();
// Throws BenchError if it has: what goes on for long is given up, and half a figure is none.
void endIfInterrupted();
