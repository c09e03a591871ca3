#include "InterfaceT93/busloadMeter.h"

#include <utility>

namespace vexmor::Cim
{

void CBusloadMeter::endPeriod(std::uint32_t periodMs, std::uint32_t kbitPerSecond)
{
    const std::uint64_t bits = std::exchange(m_bits, 0);
    const std::uint32_t capacity = periodMs * kbitPerSecond;
    if (capacity != 0) {
        m_percent = static_cast<std::uint32_t>(bits * 100 / capacity);
    }
}

bool CBusloadMeter::confirmGatewayMeasures()
{
    return !std::exchange(m_gatewayMeasures, true);
}

void CBusloadMeter::takeGatewayValue(std::uint32_t value, std::uint32_t kbitPerSecond)
{
    // The gateway reports frames per second of 74 bits each: value * 74 / (kbit/s * 1000) * 100 percent.
    if (kbitPerSecond != 0) {
        m_percent = value * 74U / kbitPerSecond / 10U;
    }
}

} // namespace vexmor::Cim
