#pragma once

#include <cstdlib>

/// Aborts the fuzzer if a condition does not hold, so that it reports its input.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}
