#include "apps/cimview/workbench.h"

#include "apps/common/clock.h"

namespace vexmor::Apps::Cimview
{
namespace
{
/// Fast enough for the eye, and rare enough that a batch of a busy bus is worth its repaint.
constexpr int FETCH_INTERVAL_MS = 40;
} // namespace

CWorkbench::CWorkbench(const std::vector<SPlugin>& plugins)
    : m_interfaces(plugins, m_names, m_mailbox),
      m_scan(plugins, [this](auto found) { m_interfaces.addFound(std::move(found)); }),
      m_feed(m_names)
{
    connect(&m_interfaces, &CInterfaceList::eventHappened, &m_events, &CEventModel::add);
    connect(&m_interfaces, &CInterfaceList::busloadRead, this, [this](const QString& name, std::optional<int> percent) {
        m_busloads.add(name, {microsecondsNow(), percent});
    });
    connect(&m_scan, &CNetworkScan::finished, this,
            [this](int found) { note(tr("Scan finished, interfaces found: %1").arg(found)); });
    connect(&m_timer, &QTimer::timeout, this, &CWorkbench::fetch);
    m_timer.start(FETCH_INTERVAL_MS);
}

void CWorkbench::startScan()
{
    if (!m_scan.start()) {
        warn(tr("No scan could be started."));
    }
}

void CWorkbench::note(const QString& text)
{
    m_events.add({microsecondsNow(), EEvent::eNote, QString(), 0, 1, text});
}

void CWorkbench::warn(const QString& text)
{
    m_events.add({microsecondsNow(), EEvent::eWarning, QString(), 0, 1, text});
}

void CWorkbench::fetch()
{
    m_mailbox.take(m_delivery);
    m_fetched += m_delivery.records.size();
    m_feed.feed(m_delivery.records);
    for (const SErrorRecord& error : m_delivery.errors) {
        m_events.add(m_interfaces.eventOf(error));
    }
    if (m_delivery.lost > 0) {
        m_lost += m_delivery.lost;
        warn(tr("The window was busy for too long: %1 messages were lost.").arg(m_delivery.lost));
    }
}

} // namespace vexmor::Apps::Cimview
