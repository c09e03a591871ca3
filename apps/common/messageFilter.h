#pragma once

#include "apps/common/problem.h"
#include "cim/canMessage.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps
{

/// Lets a message through when its identifier equals `id` in the bits of `mask`.
struct SFilter {
    std::uint16_t id = 0;
    std::uint16_t mask = 0;
};

/// Reads "ID:MASK", both hexadecimal.
Result<SFilter> readFilter(const QString& text);

/// True for a message that one of the filters lets through; no filter: all are.
bool passesFilters(const std::vector<SFilter>& filters, const Cim::CCanMessage& message);

} // namespace vexmor::Apps
