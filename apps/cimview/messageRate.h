#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vexmor::Apps::Cimview
{

/// Counts messages and returns their rate over the last two seconds. Shortly after the first message, the rate is taken
/// over the time since then, but over one second at least.
class CMessageRate
{
public:
    /// Messages are counted in slots of this length. The rate changes when a slot ends.
    static constexpr std::int64_t SLOT_MICROSECONDS = 100000;
    static constexpr std::int64_t SLOTS = 20;

    void add(std::int64_t microseconds)
    {
        const std::int64_t number = microseconds / SLOT_MICROSECONDS;
        m_first = std::min(m_first, number);
        SSlot& slot = m_slots[static_cast<std::size_t>(number % (SLOTS + 1))];
        slot.count = slot.number == number ? slot.count + 1 : 1;
        slot.number = number;
    }
    double perSecond(std::int64_t now) const
    {
        const std::int64_t present = now / SLOT_MICROSECONDS; // this slot has not ended and does not count
        std::uint32_t count = 0;
        for (const SSlot& slot : m_slots) {
            count += slot.number < present && slot.number >= present - SLOTS ? slot.count : 0;
        }
        const std::int64_t slots = std::clamp(present - m_first, SLOTS / 2, SLOTS);
        return count * 1e6 / static_cast<double>(slots * SLOT_MICROSECONDS);
    }

private:
    struct SSlot {
        std::int64_t number = 0; ///< Number of the slot, counted from the epoch.
        std::uint32_t count = 0;
    };
    std::array<SSlot, SLOTS + 1> m_slots{}; ///< Slots with the latest messages.
    std::int64_t m_first = INT64_MAX;       ///< Number of the first slot.
};

} // namespace vexmor::Apps::Cimview
