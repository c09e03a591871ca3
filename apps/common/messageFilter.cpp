#include "apps/common/messageFilter.h"

#include <algorithm>

namespace vexmor::Apps
{
namespace
{
constexpr unsigned int MAX_FILTER_BITS = 0xFFFF;
}

Result<SFilter> readFilter(const QString& text)
{
    bool idIsNumber = false;
    bool maskIsNumber = false;
    const unsigned int id = text.section(QLatin1Char(':'), 0, 0).toUInt(&idIsNumber, 16);
    const unsigned int mask = text.section(QLatin1Char(':'), 1).toUInt(&maskIsNumber, 16);
    if (!idIsNumber || !maskIsNumber || id > MAX_FILTER_BITS || mask > MAX_FILTER_BITS) {
        return SProblem{Words::tr("filter %1: must be ID:MASK, hexadecimal, like 120:7F0").arg(text), 0, true};
    }
    return SFilter{static_cast<std::uint16_t>(id), static_cast<std::uint16_t>(mask)};
}

bool passesFilters(const std::vector<SFilter>& filters, const Cim::CCanMessage& message)
{
    const auto letsThrough = [&message](const SFilter& filter) {
        return (message.id().value() & filter.mask) == (filter.id & filter.mask);
    };
    return filters.empty() || std::any_of(filters.begin(), filters.end(), letsThrough);
}

} // namespace vexmor::Apps
