#include "canlog/logComparison.h"

#include "canlog/words.h"

#include <QStringList>

#include <algorithm>
#include <set>

namespace vexmor::CanLog
{
namespace
{
constexpr double RATE_TOLERANCE = 0.1;
constexpr double PER_SECOND = 1e6;

/// Returns true when a rate is greater than another rate by more than the tolerance and one message.
bool isGreater(double messages, double seconds, double otherMessages, double otherSeconds)
{
    return (messages - 1) / seconds > (otherMessages + 1) / otherSeconds * (1 + RATE_TOLERANCE);
}

bool ratesDiffer(const SLogDifference::SSide& one, double seconds, const SLogDifference::SSide& other,
                 double otherSeconds)
{
    const auto count = static_cast<double>(one.messages);
    const auto otherCount = static_cast<double>(other.messages);
    return one.rate && other.rate &&
           (isGreater(count, seconds, otherCount, otherSeconds) || isGreater(otherCount, otherSeconds, count, seconds));
}
} // namespace

QString SLogDifference::text() const
{
    if (isMissing() || isNew()) {
        return isNew() ? Words::tr("new") : Words::tr("missing");
    }
    QStringList texts;
    if (hasOtherRate) {
        texts += Words::tr("rate");
    }
    if (hasOtherData) {
        texts += Words::tr("data");
    }
    return texts.join(QStringLiteral(", "));
}

void CLogProfile::add(const SLogEntry& entry)
{
    m_first = std::min(m_first, entry.microseconds);
    m_last = std::max(m_last, entry.microseconds);
    SSummary& summary = m_summaries[entry.message.id().value()];
    if (summary.messages++ == 0) {
        summary.longest = entry.message;
        return;
    }
    const bool isLonger = entry.message.length() > summary.longest.length();
    const Cim::CCanMessage shorter = isLonger ? summary.longest : entry.message;
    if (isLonger) {
        summary.longest = entry.message;
    }
    for (unsigned int i = 0; i < summary.longest.length(); ++i) {
        if (i >= shorter.length() || shorter.data()[i] != summary.longest.data()[i]) {
            summary.changes.at(i) = true;
        }
    }
}

double CLogProfile::seconds() const
{
    return m_summaries.empty() ? 0 : static_cast<double>(m_last - m_first) / PER_SECOND;
}

SLogDifference::SSide CLogProfile::side(std::uint16_t id) const
{
    SLogDifference::SSide side;
    const auto found = m_summaries.find(id);
    if (found == m_summaries.end()) {
        return side;
    }
    const SSummary& summary = found->second;
    side.messages = summary.messages;
    if (seconds() > 0) {
        side.rate = static_cast<double>(side.messages) / seconds();
    }
    side.data = formatData(summary.longest);
    for (int i = 0; i < static_cast<int>(summary.longest.length()); ++i) {
        if (summary.changes.at(static_cast<std::size_t>(i))) {
            side.data.replace(3 * i, 2, "..");
        }
    }
    return side;
}

std::vector<SLogDifference> CLogProfile::differencesIn(const CLogProfile& other) const
{
    std::set<std::uint16_t> ids;
    for (const CLogProfile* const profile : {this, &other}) {
        for (const auto& [id, summary] : profile->m_summaries) {
            ids.insert(id);
        }
    }
    std::vector<SLogDifference> differences;
    for (const std::uint16_t id : ids) {
        SLogDifference found{id, side(id), other.side(id)};
        found.hasOtherRate = ratesDiffer(found.before, seconds(), found.after, other.seconds());
        found.hasOtherData = found.before.data != found.after.data;
        if (found.isMissing() || found.isNew() || found.hasOtherRate || found.hasOtherData) {
            differences.push_back(found);
        }
    }
    return differences;
}

Failure CLogComparison::open(const QString& before, const QString& after)
{
    const Failure failure = m_readers[0].open(before);
    return failure ? failure : m_readers[1].open(after);
}

Result<bool> CLogComparison::readMore(int count)
{
    for (int i = 0; i < count && m_reading < m_readers.size(); ++i) {
        auto entry = m_readers.at(m_reading).next();
        if (!entry) {
            return entry.problem();
        }
        if (*entry) {
            m_profiles.at(m_reading).add(**entry);
        } else {
            ++m_reading;
        }
    }
    return m_reading < m_readers.size();
}

QString CLogComparison::text() const
{
    const auto count = [](std::size_t number) { return static_cast<qulonglong>(number); };
    const QString text = Words::tr("identifiers: %1 before, %2 after; different: %3")
                             .arg(count(m_profiles[0].identifierCount()))
                             .arg(count(m_profiles[1].identifierCount()))
                             .arg(count(differences().size()));
    const int skipped = m_readers[0].skipped() + m_readers[1].skipped();
    return skipped == 0 ? text : text + Words::tr("; lines without a standard frame: %1").arg(skipped);
}

} // namespace vexmor::CanLog
