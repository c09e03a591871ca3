#include "apps/cimview/workbench.h"

#include "apps/host/clock.h"

namespace vexmor::Apps::Cimview
{
namespace
{
/// Fast enough for the eye, and rare enough that a batch of a busy bus is worth its repaint.
constexpr int FETCH_INTERVAL_MS = 40;
} // namespace

CWorkbench::CWorkbench(const std::vector<SPlugin>& plugins)
    : m_interfaces(plugins, m_names, m_mailbox), m_scan(plugins, m_interfaces), m_feed(m_names)
{
    connect(&m_interfaces, &CInterfaceList::eventRaised, &m_events, &CEventModel::add);
    connect(&m_interfaces, &CInterfaceList::busloadRead, this, [this](const QString& name, std::optional<int> percent) {
        m_busloads.add(name, {microsecondsNow(), percent});
    });
    connect(&m_scan, &CNetworkScan::finished, this,
            [this](int found) { note(tr("Scan finished, interfaces found: %1").arg(found)); });
    connect(&m_recorder, &CLogRecorder::started, this,
            [this] { note(tr("Recording to %1").arg(m_recorder.fileName())); });
    connect(&m_recorder, &CLogRecorder::ended, this, [this](const QString& problem) {
        problem.isEmpty() ? note(tr("Recording ended, messages: %1").arg(m_recorder.count())) : warn(problem);
    });
    connect(&m_timer, &QTimer::timeout, this, &CWorkbench::fetch);
    m_timer.start(FETCH_INTERVAL_MS);
}

Failure CWorkbench::simulate(const QString& logFile)
{
    if (Failure failure = m_sim.start(logFile, true)) {
        return failure;
    }
    const int first = m_interfaces.rowCount();
    for (const QString& protocol : {QStringLiteral("TCP"), QStringLiteral("UDP")}) {
        const Settings settings{{StoreKey::ADDRESS, m_sim.gateway().address().toString()},
                                {StoreKey::PORT, QString::number(m_sim.gateway().port())},
                                {StoreKey::PROTOCOL, protocol},
                                {StoreKey::BAUDRATE, QString::number(m_sim.bus().baudrate())}};
        if (Failure failure = m_interfaces.add(tr("Simulation %1").arg(protocol), settings, false)) {
            return failure;
        }
    }
    m_interfaces.at(first).open();
    m_sim.startTraffic();
    return {};
}

void CWorkbench::startScan()
{
    if (!m_scan.start()) {
        warn(tr("No scan could be started."));
    }
}

void CWorkbench::note(const QString& text)
{
    m_events.add(eventNow(EEvent::eNote, text));
}

void CWorkbench::warn(const QString& text)
{
    m_events.add(eventNow(EEvent::eWarning, text));
}

void CWorkbench::fetch()
{
    m_mailbox.take(m_delivery);
    m_fetched += m_delivery.records.size();
    m_feed.addLive(m_delivery.records);
    m_recorder.record(m_delivery.records);
    for (const SErrorRecord& error : m_delivery.errors) {
        m_events.add(m_interfaces.eventOf(error));
    }
    if (m_delivery.lost > 0) {
        m_lost += m_delivery.lost;
        warn(tr("The window was busy for too long: %1 messages were lost.").arg(m_delivery.lost));
    }
}

} // namespace vexmor::Apps::Cimview
