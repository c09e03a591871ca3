#pragma once

#include <cstdlib>

/// Ends a fuzzer, which so reports its input, unless this holds.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}
