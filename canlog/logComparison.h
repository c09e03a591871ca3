#pragma once

#include "canlog/candumpLog.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vexmor::CanLog
{

/// What two logs have of one identifier, when that is not the same.
struct SLogDifference {
    /// What one of them has.
    struct SSide {
        std::uint64_t messages = 0;
        std::optional<double> rate; ///< messages per second over the whole log; nothing: the log has no duration
        QByteArray data;            ///< hexadecimal; ".." stands for a byte that differs among the messages
    };
    std::uint16_t id = 0;
    SSide before;
    SSide after;
    bool hasOtherRate = false;
    bool hasOtherData = false;

    bool isMissing() const { return after.messages == 0; }
    bool isNew() const { return before.messages == 0; }
    /// What differs, in words: missing, new, rate, data.
    QString text() const;
};

/// What a log has of each identifier, whatever the interface and the direction: sums, not the messages.
class CLogProfile
{
public:
    void add(const SLogEntry& entry);
    /// How another log differs from this one, by identifier. Rates differ when they are over 10 % apart, whatever one
    /// message more or less makes of them; data differs in a byte that is always the same in one of the logs.
    std::vector<SLogDifference> differencesIn(const CLogProfile& other) const;
    std::size_t identifierCount() const { return m_summaries.size(); }

private:
    struct SSummary {
        std::uint64_t messages = 0;
        Cim::CCanMessage longest;                    ///< the first of those with the most data
        std::array<bool, MAX_DATA_LENGTH> changes{}; ///< bytes that differ among the messages, or are missing in some
    };

    double seconds() const;
    SLogDifference::SSide side(std::uint16_t id) const;

    std::map<std::uint16_t, SSummary> m_summaries; ///< by identifier
    std::int64_t m_first = INT64_MAX;              ///< microseconds of the earliest message
    std::int64_t m_last = INT64_MIN;               ///< of the latest
};

/// Reads two logs and compares them, in constant memory.
class CLogComparison
{
public:
    /// Fails when one of the files cannot be read.
    Failure open(const QString& before, const QString& after);
    /// Reads at most so many entries more. Returns false when both logs have been read to their ends.
    Result<bool> readOn(int count);
    std::vector<SLogDifference> differences() const { return m_profiles[0].differencesIn(m_profiles[1]); }
    /// What was compared, in words.
    QString text() const;

private:
    std::array<CLogReader, 2> m_readers;
    std::array<CLogProfile, 2> m_profiles;
    std::size_t m_reading = 0; ///< the log that is being read
};

} // namespace vexmor::CanLog
