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
        const std::int64_t slot = microseconds / SLOT_MICROSECONDS;
        if (m_first < 0) {
            m_first = slot;
        }
        for (m_newest = std::max(m_newest, slot - SLOTS - 1); m_newest < slot;) {
            countIn(++m_newest) = 0;
        }
        if (slot >= m_newest - SLOTS) {
            ++countIn(slot);
        }
    }
    double perSecond(std::int64_t now) const
    {
        const std::int64_t present = now / SLOT_MICROSECONDS; // has not ended
        std::uint32_t count = 0;
        for (std::int64_t slot = std::max({present - SLOTS, m_newest - SLOTS, std::int64_t(0)});
             slot < present && slot <= m_newest; ++slot) {
            count += countIn(slot);
        }
        const std::int64_t slots = std::clamp(present - m_first, SLOTS / 2, SLOTS);
        return count * 1e6 / static_cast<double>(slots * SLOT_MICROSECONDS);
    }

private:
    static std::size_t place(std::int64_t slot) { return static_cast<std::size_t>(slot % (SLOTS + 1)); }
    std::uint32_t& countIn(std::int64_t slot) { return m_counts[place(slot)]; }
    std::uint32_t countIn(std::int64_t slot) const { return m_counts[place(slot)]; }

    std::array<std::uint32_t, SLOTS + 1> m_counts{}; ///< those up to the newest
    std::int64_t m_newest = -1;
    std::int64_t m_first = -1; ///< slot of the first message
};

} // namespace vexmor::Apps::Cimview
