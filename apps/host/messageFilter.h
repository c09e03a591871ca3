#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps
{

/// A filter that passes messages whose identifier, in the bits of `mask`, is in the range `low` to `high`. An inverse
/// filter rejects these messages.
struct SFilter {
    std::uint16_t low = 0;
    std::uint16_t high = 0;
    std::uint16_t mask = 0x7FF;
    bool inverse = false;
};

/// Reads a filter: ID, ID:MASK, ID~MASK (inverse) or LOW-HIGH, all hexadecimal.
Result<SFilter> readFilter(const QString& text);

/// Returns whether a message passes: no inverse filter rejects it, and one of the other filters, if any, passes it.
bool passesFilters(const std::vector<SFilter>& filters, const Cim::CCanMessage& message);

} // namespace vexmor::Apps
