// The process-wide test state. Every room of the agent reads and writes these variables, on the GUI
// thread only, so no lock guards them. Declared once, by concern; defined in teststate.cpp and
// items.cpp once.
#pragma once

#include "calibrationstate.h"
#include "linkstate.h"
#include "runstate.h"
#include "screenstate.h"
