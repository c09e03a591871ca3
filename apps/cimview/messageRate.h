#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vexmor::Apps::Cimview
{

/// Counts messages, and gives their rate over the last two seconds; shortly after the first message, over the time
/// since then, at least a second.
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
        const std::int64_t present = now / SLOT_MICROSECONDS; // has not ended
        std::uint32_t count = 0;
        for (const SSlot& slot : m_slots) {
            count += slot.number < present && slot.number >= present - SLOTS ? slot.count : 0;
        }
        const std::int64_t slots = std::clamp(present - m_first, SLOTS / 2, SLOTS);
        return count * 1e6 / static_cast<double>(slots * SLOT_MICROSECONDS);
    }

private:
    struct SSlot {
        std::int64_t number = 0; ///< since the epoch
        std::uint32_t count = 0;
    };
    std::array<SSlot, SLOTS + 1> m_slots{}; ///< of the last messages
    std::int64_t m_first = INT64_MAX;       ///< number of the first slot
};

} // namespace vexmor::Apps::Cimview
