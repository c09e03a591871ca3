#pragma once

#include <cstdint>

namespace vexmor::CoreLib::DataTypes
{

/// A CAN identifier: 16 bits wide, of which a standard identifier uses bits 0 to 10 (0x000 to 0x7FF).
///
/// It is a plain value of exactly two bytes. The number is neither checked nor masked; it is sent as it was stored.
class CCanId
{
public:
    /// Creates an identifier from a high byte and a low byte; the third byte is reserved and ignored.
    constexpr CCanId(unsigned char high, unsigned char low, unsigned char /*reserved*/)
        : m_value(static_cast<std::uint16_t>((high << 8) | low))
    {
    }
    constexpr CCanId(const CCanId&) = default;
    constexpr CCanId& operator=(const CCanId&) = default;

    /// Returns the identifier with this number.
    static constexpr CCanId fromValue(std::uint16_t value)
    {
        return CCanId(static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value & 0xFF), 0);
    }

    /// Returns the identifier as a number.
    constexpr std::uint16_t value() const { return m_value; }
    /// Returns bits 8 to 15 of the number.
    constexpr std::uint8_t high() const { return static_cast<std::uint8_t>(m_value >> 8); }
    /// Returns bits 0 to 7 of the number.
    constexpr std::uint8_t low() const { return static_cast<std::uint8_t>(m_value & 0xFF); }

    constexpr bool operator==(const CCanId& other) const { return m_value == other.m_value; }
    constexpr bool operator!=(const CCanId& other) const { return m_value != other.m_value; }

private:
    std::uint16_t m_value;
};

static_assert(sizeof(CCanId) == 2, "host and plugin share messages byte for byte");

} // namespace vexmor::CoreLib::DataTypes
