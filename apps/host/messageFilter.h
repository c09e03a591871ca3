#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps
{

/// Lets a message through when its identifier, in the bits of `mask`, is one of `low` to `high`; inverse: when it is
/// not.
struct SFilter {
    std::uint16_t low = 0;
    std::uint16_t high = 0;
    std::uint16_t mask = 0x7FF;
    bool inverse = false;
};

/// Reads ID, ID:MASK, ID~MASK (all but these) or LOW-HIGH, hexadecimal.
Result<SFilter> readFilter(const QString& text);

/// True for a message that one of the filters lets through and no inverse one holds back; no filter: all are.
bool passesFilters(const std::vector<SFilter>& filters, const Cim::CCanMessage& message);

} // namespace vexmor::Apps
