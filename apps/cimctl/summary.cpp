#include "apps/cimctl/summary.h"

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// Interval between two samples of the bus load: short enough not to miss a value of an interface that updates it every
/// 800 ms, the default.
constexpr int BUSLOAD_SAMPLE_MS = 400;
/// Time after which the first bus load is known by default; until then, an interface reports 0.
constexpr int FIRST_BUSLOAD_MS = 2000;
} // namespace

CSummary::CSummary(CHostedInterface& hosted) : m_interface(hosted)
{
    connect(&hosted, &CHostedInterface::sent, this, [this] { ++m_sent; });
    connect(&hosted, &CHostedInterface::errorRaised, this, [this] { ++m_errors; });
    connect(&m_busloadTimer, &QTimer::timeout, this, &CSummary::sampleBusload);
}

void CSummary::start()
{
    m_sinceUnknown.start();
    m_busloadTimer.start(BUSLOAD_SAMPLE_MS);
}

void CSummary::sampleBusload()
{
    const std::optional<int> percent = m_interface.status().busload;
    if (!percent) {
        m_sinceUnknown.start();
    }
    if (!percent || (*percent == 0 && m_sinceUnknown.elapsed() < FIRST_BUSLOAD_MS)) {
        return;
    }
    ++m_busloadSamples;
    m_busloadSum += *percent;
    m_busloadPeak = std::max(m_busloadPeak, *percent);
}

std::pair<QString, QJsonObject> CSummary::finish()
{
    m_busloadTimer.stop();
    sampleBusload(); // a short run may end before the timer has sampled its only value
    const std::uint64_t received = m_interface.receivedCount();
    const std::uint64_t lost = m_interface.lostCount();
    QString load = QStringLiteral("not measured");
    QJsonObject object{{QStringLiteral("event"), QStringLiteral("summary")},
                       {QStringLiteral("received"), static_cast<qint64>(received)},
                       {QStringLiteral("sent"), static_cast<qint64>(m_sent)},
                       {QStringLiteral("refused"), static_cast<qint64>(m_refused)},
                       {QStringLiteral("lost"), static_cast<qint64>(lost)},
                       {QStringLiteral("errors"), static_cast<qint64>(m_errors)},
                       {QStringLiteral("busloadMean"), QJsonValue()},
                       {QStringLiteral("busloadPeak"), QJsonValue()}};
    if (m_busloadSamples > 0) {
        const int mean = static_cast<int>(m_busloadSum / m_busloadSamples);
        load = QStringLiteral("mean %1 %, peak %2 %").arg(mean).arg(m_busloadPeak);
        object.insert(QStringLiteral("busloadMean"), mean);
        object.insert(QStringLiteral("busloadPeak"), m_busloadPeak);
    }
    const QString refused = m_refused == 0 ? QString() : QStringLiteral(", refused %1").arg(m_refused);
    return {QStringLiteral("received %1, sent %2%3, lost %4, errors %5, bus load %6")
                .arg(QString::number(received), QString::number(m_sent), refused, QString::number(lost),
                     QString::number(m_errors), load),
            object};
}

} // namespace vexmor::Apps::Cimctl
