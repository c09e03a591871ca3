#pragma once

#include "cim/canMessage.h"

#include <cstdlib>

/// Aborts the fuzzer if a condition does not hold, so that it reports its input.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

/// Requires that a bus can carry a message.
inline void requireCarried(const vexmor::Cim::CCanMessage& message)
{
    require(message.id().value() <= 0x7FF);
    require(message.length() <= 8);
}
