#pragma once

#include "cim/canMessage.h"

#include <cstdint>

namespace vexmor::Apps::Cimview
{

/// A message as the models keep it, by the hundred thousand.
struct STraceRecord {
    std::int64_t microseconds = 0; ///< since the epoch
    Cim::CCanMessage message;
    std::uint16_t source = 0; ///< number of its interface, see CSourceNames
    bool sent = false;        ///< false: received
};

static_assert(sizeof(STraceRecord) <= 24, "a full trace must stay small");

} // namespace vexmor::Apps::Cimview
