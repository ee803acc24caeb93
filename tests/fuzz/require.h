#pragma once

#include <cstdlib>

// What must hold whatever comes: else the input is a finding.
inline void require(bool good)
{
    if (!good)
        abort();
}
