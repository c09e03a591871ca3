#pragma once

#include <cstdint>
#include <cstring>

namespace vexmor::Bench
{

/// The number that a message carries in its first four data bytes.
inline std::uint32_t numberOf(const std::uint8_t* data)
{
    std::uint32_t number = 0;
    std::memcpy(&number, data, sizeof number);
    return number;
}

/// Watches numbered messages come in: each number may come once, and only higher than the ones before.
struct SSequence {
    std::uint64_t received = 0;
    std::uint64_t missing = 0;    ///< numbers that were left out so far
    std::uint64_t gaps = 0;       ///< how often some were
    std::uint64_t disordered = 0; ///< came twice, or late
    std::uint32_t nextNumber = 0; ///< one above the highest so far

    void take(std::uint32_t number)
    {
        ++received;
        if (number < nextNumber) {
            ++disordered;
            return;
        }
        gaps += number > nextNumber ? 1 : 0;
        missing += number - nextNumber;
        nextNumber = number + 1;
    }
};

} // namespace vexmor::Bench
