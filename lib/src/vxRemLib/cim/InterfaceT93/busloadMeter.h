#pragma once

#include <cstdint>

namespace vexmor::Cim
{

/// Bits that a message is counted with: its data bits and a fixed 46 around them.
constexpr std::uint64_t canMessageBits(unsigned int dataLength)
{
    return dataLength * 8U + 46U;
}

/// The load of a CAN bus in percent: what the gateway measured, once it has confirmed that it does; an estimate from
/// the messages of this host until then. A value without timer and socket: whoever owns it says when a period ends and
/// what the gateway answered. A result that would need a division by zero leaves the load as it was.
class CBusloadMeter
{
public:
    std::uint32_t percent() const { return m_percent; }
    bool gatewayMeasures() const { return m_gatewayMeasures; }

    void countMessage(unsigned int dataLength) { m_bits += canMessageBits(dataLength); }
    /// Ends a period of the estimate: the load becomes that of the messages counted since the last one, rounded down.
    /// The period's capacity is a 32-bit product (1 ms at 1 kbit/s is 1 bit), which may wrap to 0.
    void endPeriod(std::uint32_t periodMs, std::uint32_t kbitPerSecond);
    /// The gateway confirms that it measures; false when it had done so before.
    bool confirmGatewayMeasures();
    /// Takes the value that the gateway measured on a bus of `kbitPerSecond`; the load is rounded down.
    void takeGatewayValue(std::uint32_t value, std::uint32_t kbitPerSecond);

private:
    std::uint32_t m_percent = 0;
    bool m_gatewayMeasures = false;
    std::uint64_t m_bits = 0; ///< sent and received since the last period
};

} // namespace vexmor::Cim
