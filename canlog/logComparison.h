#pragma once

#include "canlog/candumpLog.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vexmor::CanLog
{

/// An identifier that differs between two logs.
struct SLogDifference {
    /// The messages with this identifier in one of the logs.
    struct SSide {
        std::uint64_t messages = 0;
        std::optional<double> rate; ///< Messages per second over the whole log; not set when the log has no duration.
        QByteArray data;            ///< Hexadecimal; ".." stands for a byte that differs between messages.
    };
    std::uint16_t id = 0;
    SSide before;
    SSide after;
    bool hasOtherRate = false;
    bool hasOtherData = false;

    bool isMissing() const { return after.messages == 0; }
    bool isNew() const { return before.messages == 0; }
    /// Returns what differs, as words for the user: missing, new, rate, data.
    QString text() const;
};

/// The statistics of each identifier in a log, over all interfaces and both directions. Messages are not kept.
class CLogProfile
{
public:
    void add(const SLogEntry& entry);
    /// Returns the identifiers that differ in another log. Rates differ when they are over 10 % apart, even if one
    /// message is added or removed. Data differs when a byte that never changes in one of the logs is not the same in
    /// the other.
    std::vector<SLogDifference> differencesIn(const CLogProfile& other) const;
    std::size_t identifierCount() const { return m_summaries.size(); }

private:
    struct SSummary {
        std::uint64_t messages = 0;
        Cim::CCanMessage longest;                    ///< First message with the most data bytes.
        std::array<bool, MAX_DATA_LENGTH> changes{}; ///< Bytes that differ between messages, or are missing in some.
    };

    double seconds() const;
    SLogDifference::SSide side(std::uint16_t id) const;

    std::map<std::uint16_t, SSummary> m_summaries; ///< Statistics by identifier.
    std::int64_t m_first = INT64_MAX;              ///< Microseconds of the earliest message.
    std::int64_t m_last = INT64_MIN;               ///< Microseconds of the latest message.
};

/// Reads two logs and compares them, in constant memory.
class CLogComparison
{
public:
    /// Opens both logs. Fails when one of the files cannot be read.
    Failure open(const QString& before, const QString& after);
    /// Reads at most this many further entries. Returns false when both logs have been read to their ends.
    Result<bool> readMore(int count);
    std::vector<SLogDifference> differences() const { return m_profiles[0].differencesIn(m_profiles[1]); }
    /// Returns a summary for the user: the number of identifiers in each log, and the number of those that differ.
    QString text() const;

private:
    std::array<CLogReader, 2> m_readers;
    std::array<CLogProfile, 2> m_profiles;
    std::size_t m_reading = 0; ///< Index of the log that is being read.
};

} // namespace vexmor::CanLog
