#pragma once

#include "apps/host/mailbox.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace vexmor::Apps
{

/// What happened on each interface since the start of the session: messages, their rate, bus load, errors by kind. Sums
/// alone, so a session may last for weeks.
class CSessionStatistics
{
public:
    /// Returns the name of an interface.
    using Name = std::function<QString(std::uint16_t source)>;
    /// Returns the text of an error of an interface.
    using ErrorText = std::function<QString(std::uint16_t source, int error)>;

    /// `now`, as all times, in microseconds since the epoch.
    explicit CSessionStatistics(std::int64_t now) : m_start(now) {}

    void add(const SDelivery& delivery);
    /// Takes note of the load of a bus, regularly; nothing where it is not known.
    void addLoad(std::uint16_t source, std::optional<int> percent);
    /// The statistics from the start to `now` as a text for the user.
    QString text(std::int64_t now, const Name& name, const ErrorText& errorText) const;

private:
    struct SCounts {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        std::uint64_t refused = 0;
        std::int64_t second = 0;    ///< of the last message, since the epoch
        std::uint64_t inSecond = 0; ///< messages in that second
        std::uint64_t peak = 0;     ///< messages in any second, at most
        std::uint64_t loads = 0;    ///< number of known loads
        std::uint64_t loadSum = 0;  ///< percent
        int loadPeak = 0;
        std::map<int, std::uint64_t> errors; ///< by number
    };
    static QString countText(const SCounts& counts, double seconds);

    std::int64_t m_start;
    std::uint64_t m_lost = 0;
    std::map<std::uint16_t, SCounts> m_counts; ///< by interface
};

} // namespace vexmor::Apps
