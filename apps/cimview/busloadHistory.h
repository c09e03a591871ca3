#pragma once

#include <QString>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>

namespace vexmor::Apps::Cimview
{

/// The bus load of each interface over the last ten minutes: every value that was read.
class CBusloadHistory
{
public:
    static constexpr std::int64_t KEPT_MICROSECONDS = 600LL * 1000000;

    struct SSample {
        std::int64_t microseconds = 0; ///< Time in microseconds since the epoch.
        std::optional<int> percent;    ///< The load; without a value, it is unknown from then on.
    };
    using Samples = std::deque<SSample>;

    /// Adds a sample, which must not be older than those before it, and drops samples that have become too old.
    void add(const QString& source, const SSample& sample)
    {
        const auto known = m_samples.find(source);
        const bool wasKnown = known != m_samples.end() && known->second.back().percent;
        if (sample.percent || wasKnown) {
            m_samples[source].push_back(sample);
        }
        for (auto entry = m_samples.begin(); entry != m_samples.end();) {
            Samples& samples = entry->second;
            while (!samples.empty() && sample.microseconds - samples.front().microseconds > KEPT_MICROSECONDS) {
                samples.pop_front();
            }
            entry = samples.empty() ? m_samples.erase(entry) : std::next(entry);
        }
    }
    /// Returns the samples of each interface, by its name.
    const std::map<QString, Samples>& samples() const { return m_samples; }

private:
    std::map<QString, Samples> m_samples;
};

} // namespace vexmor::Apps::Cimview
