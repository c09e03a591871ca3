#pragma once

#include <cstdint>

/// The arithmetic of bus load. All functions are pure; where a result would need a division by zero they give false and
/// leave `percent` as it was.
namespace vexmor::Cim
{

/// Bits that a message is counted with: its data bits and a fixed 46 around them.
constexpr std::uint64_t canMessageBits(unsigned int dataLength)
{
    return dataLength * 8U + 46U;
}

/// Load in percent, rounded down, from the bits seen in `periodMs` milliseconds on a bus of `kbitPerSecond`
/// (1 ms at 1 kbit/s is 1 bit). The period's capacity is a 32-bit product, which may wrap to 0.
bool busloadOfBits(std::uint64_t bits, std::uint32_t periodMs, std::uint32_t kbitPerSecond, std::uint32_t& percent);

/// Load in percent, rounded down, from the value that a gateway measured on a bus of `kbitPerSecond`.
bool busloadOfGatewayValue(std::uint32_t value, std::uint32_t kbitPerSecond, std::uint32_t& percent);

} // namespace vexmor::Cim
