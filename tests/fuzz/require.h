#pragma once

#include "cim/canMessage.h"

#include <cstdlib>

/// Ends a fuzzer, which so reports its input, unless this holds.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

/// That a bus can carry this message.
inline void requireCarried(const vexmor::Cim::CCanMessage& message)
{
    require(message.id().value() <= 0x7FF);
    require(message.length() <= 8);
}
