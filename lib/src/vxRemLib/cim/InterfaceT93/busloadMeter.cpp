#include "InterfaceT93/busload.h"

namespace vexmor::Cim
{

bool busloadOfBits(std::uint64_t bits, std::uint32_t periodMs, std::uint32_t kbitPerSecond, std::uint32_t& percent)
{
    const std::uint32_t capacity = periodMs * kbitPerSecond;
    if (capacity == 0) {
        return false;
    }
    percent = static_cast<std::uint32_t>(bits * 100 / capacity);
    return true;
}

bool busloadOfGatewayValue(std::uint32_t value, std::uint32_t kbitPerSecond, std::uint32_t& percent)
{
    if (kbitPerSecond == 0) {
        return false;
    }
    // The gateway counts frames a second and takes 74 bits for one: value * 74 / (kbit/s * 1000) * 100 percent.
    percent = value * 74U / kbitPerSecond / 10U;
    return true;
}

} // namespace vexmor::Cim
