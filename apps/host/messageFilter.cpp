#include "apps/host/messageFilter.h"

#include "apps/host/words.h"
#include "canlog/candumpLog.h"

#include <QRegularExpression>

namespace vexmor::Apps
{
Result<SFilter> readFilter(const QString& text)
{
    static const QRegularExpression FORM(QStringLiteral("^([0-9A-Fa-f]{1,8})(?:([:~-])([0-9A-Fa-f]{1,8}))?$"));
    const auto match = FORM.match(text);
    const unsigned int first = match.captured(1).toUInt(nullptr, 16);
    const unsigned int second = match.captured(3).toUInt(nullptr, 16);
    const QString between = match.captured(2);
    const bool isRange = between == QLatin1String("-");
    if (!match.hasMatch() || first > CanLog::MAX_ID || second > CanLog::MAX_ID || (isRange && second < first)) {
        return wrongUsage(
            Words::tr("filter %1: must be ID, ID:MASK, ID~MASK (all but these) or LOW-HIGH, hexadecimal, up to 7FF")
                .arg(text));
    }
    SFilter filter;
    filter.mask = static_cast<std::uint16_t>(isRange || between.isEmpty() ? filter.mask : second);
    filter.low = static_cast<std::uint16_t>(first & filter.mask);
    filter.high = static_cast<std::uint16_t>(isRange ? second : filter.low);
    filter.inverse = between == QLatin1String("~");
    return filter;
}

bool passesFilters(const std::vector<SFilter>& filters, const Cim::CCanMessage& message)
{
    bool isWanted = false;
    bool anyWanted = false;
    for (const SFilter& filter : filters) {
        const int bits = message.id().value() & filter.mask;
        const bool isMeant = bits >= filter.low && bits <= filter.high;
        if (filter.inverse && isMeant) {
            return false;
        }
        isWanted = isWanted || (!filter.inverse && isMeant);
        anyWanted = anyWanted || !filter.inverse;
    }
    return isWanted || !anyWanted;
}

} // namespace vexmor::Apps
