#pragma once

#include <cstdint>

namespace vexmor::Cim
{

/// Returns the number of bits that a message counts for: its data bits and 46 bits of the frame around them.
constexpr std::uint64_t canMessageBits(unsigned int dataLength)
{
    return dataLength * 8U + 46U;
}

/// The load of a CAN bus in percent: an estimate from the messages of this interface, or the gateway's own measurement
/// once the gateway has confirmed that it measures. It has no timer and no socket; its owner reports the end of each
/// period and the gateway's replies. The load keeps its value where the calculation would divide by zero.
class CBusloadMeter
{
public:
    std::uint32_t percent() const { return m_percent; }
    bool gatewayMeasures() const { return m_gatewayMeasures; }

    void countMessage(unsigned int dataLength) { m_bits += canMessageBits(dataLength); }
    /// Ends a period of the estimate: calculates the load from the messages counted in it, rounded down. The capacity
    /// of the period is a 32-bit product (1 ms at 1 kbit/s is 1 bit), which may wrap to 0.
    void endPeriod(std::uint32_t periodMs, std::uint32_t kbitPerSecond);
    /// Notes that the gateway confirmed that it measures. Returns false when it had confirmed this before.
    bool confirmGatewayMeasures();
    /// Calculates the load, rounded down, from a value that the gateway measured (frames per second, each counted as 74
    /// bits) on a bus of `kbitPerSecond`.
    void takeGatewayValue(std::uint32_t value, std::uint32_t kbitPerSecond);

private:
    std::uint32_t m_percent = 0;
    bool m_gatewayMeasures = false;
    std::uint64_t m_bits = 0; ///< Bits of messages sent and received in this period.
};

} // namespace vexmor::Cim
