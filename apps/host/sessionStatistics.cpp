#include "apps/host/sessionStatistics.h"

#include "apps/host/words.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>

namespace vexmor::Apps
{
namespace
{
constexpr std::int64_t SECOND_US = 1000000;

QString sessionTime(std::int64_t microseconds)
{
    return QLocale::system().toString(QDateTime::fromMSecsSinceEpoch(microseconds / 1000), QLocale::ShortFormat);
}
} // namespace

void CSessionStatistics::add(const SDelivery& delivery)
{
    for (const SBusRecord& record : delivery.records) {
        SCounts& counts = m_counts[record.source];
        if (record.code != 0) {
            ++counts.refused;
            continue;
        }
        ++(record.sent ? counts.sent : counts.received);
        const std::int64_t second = record.microseconds / SECOND_US;
        counts.inSecond = second == counts.second ? counts.inSecond + 1 : 1;
        counts.second = second;
        counts.peak = std::max(counts.peak, counts.inSecond);
    }
    for (const SErrorRecord& error : delivery.errors) {
        m_counts[error.source].errors[error.error] += error.count;
    }
    m_lost += delivery.lost;
}

void CSessionStatistics::addLoad(std::uint16_t source, std::optional<int> percent)
{
    if (percent) {
        SCounts& counts = m_counts[source];
        ++counts.loads;
        counts.loadSum += static_cast<std::uint64_t>(*percent);
        counts.loadPeak = std::max(counts.loadPeak, *percent);
    }
}

QString CSessionStatistics::countText(const SCounts& counts, double seconds)
{
    const auto all = static_cast<double>(counts.received + counts.sent);
    const QString load =
        counts.loads == 0 ? Words::tr("not known")
                          : Words::tr("mean %1 %, peak %2 %").arg(counts.loadSum / counts.loads).arg(counts.loadPeak);
    return Words::tr("  messages: received %1, sent %2, refused %3\n"
                     "  messages/s: mean %4, peak %5\n"
                     "  bus load: %6\n")
        .arg(counts.received)
        .arg(counts.sent)
        .arg(counts.refused)
        .arg(QString::number(all / seconds, 'f', 1))
        .arg(counts.peak)
        .arg(load);
}

QString CSessionStatistics::text(std::int64_t now, const Name& name, const ErrorText& errorText) const
{
    const std::int64_t seconds = std::max<std::int64_t>((now - m_start) / SECOND_US, 1);
    QString text = Words::tr("%1 to %2, %3 s\n").arg(sessionTime(m_start), sessionTime(now)).arg(seconds);
    for (const auto& [source, counts] : m_counts) {
        text += QStringLiteral("\n%1\n").arg(name(source)) + countText(counts, static_cast<double>(seconds));
        for (const auto& [error, count] : counts.errors) {
            const QString firstLine = errorText(source, error).section(QLatin1Char('\n'), 0, 0);
            text += Words::tr("  error %1, times: %2. %3\n").arg(error).arg(count).arg(firstLine);
        }
    }
    return text + Words::tr("\nMessages that this program lost because it was busy: %1\n").arg(m_lost);
}

} // namespace vexmor::Apps
