#pragma once

#include "apps/host/mailbox.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace vexmor::Apps
{

/// Statistics of each interface since the start of the session: messages, their rate, bus load, errors by number. Only
/// sums are kept, so a session may last for weeks.
class CSessionStatistics
{
public:
    /// Returns the name of an interface.
    using Name = std::function<QString(std::uint16_t source)>;
    /// Returns the text of an error of an interface.
    using ErrorText = std::function<QString(std::uint16_t source, int error)>;

    /// Starts a session. All times are in microseconds since the epoch.
    explicit CSessionStatistics(std::int64_t now) : m_start(now) {}

    void add(const SDelivery& delivery);
    /// Adds a sample of the load of a bus, or nothing when it is unknown. To be called at regular intervals.
    void addLoad(std::uint16_t source, std::optional<int> percent);
    /// Returns the statistics from the start to `now` as a text for the user.
    QString text(std::int64_t now, const Name& name, const ErrorText& errorText) const;

private:
    struct SCounts {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        std::uint64_t refused = 0;
        std::int64_t second = 0;    ///< Second of the last message, since the epoch.
        std::uint64_t inSecond = 0; ///< Number of messages in `second`.
        std::uint64_t peak = 0;     ///< Greatest number of messages in a second.
        std::uint64_t loads = 0;    ///< Number of samples with a known load.
        std::uint64_t loadSum = 0;  ///< Sum of the known loads, in percent.
        int loadPeak = 0;
        std::map<int, std::uint64_t> errors; ///< Count of each error, by its number.
    };
    static QString countText(const SCounts& counts, double seconds);

    std::int64_t m_start;
    std::uint64_t m_lost = 0;
    std::map<std::uint16_t, SCounts> m_counts; ///< Counts of each interface, by its number.
};

} // namespace vexmor::Apps
