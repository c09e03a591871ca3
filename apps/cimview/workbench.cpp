#include "apps/cimview/workbench.h"

#include <algorithm>

namespace vexmor::Apps::Cimview
{
namespace
{
/// Interval at which messages are fetched: short enough that the window looks live, and long enough that one repaint
/// shows many messages of a busy bus.
constexpr int FETCH_INTERVAL_MS = 40;
constexpr int SAMPLE_INTERVAL_MS = 250;
} // namespace

CWorkbench::CWorkbench(const std::vector<SPlugin>& plugins)
    : m_interfaces(plugins, m_names, m_mailbox), m_scan(plugins), m_feed(m_names)
{
    connect(&m_interfaces, &CInterfaceList::eventRaised, this, [this](const SEvent& event) {
        fetch(); // first adds the errors that were raised before this event
        m_events.add(event);
    });
    connect(&m_interfaces, &CInterfaceList::statesChanged, this, &CWorkbench::sampleStates);
    connect(&m_scan, &CInterfaceScan::finished, this, &CWorkbench::addFound);
    connect(&m_recorder, &CLogRecorder::started, this,
            [this] { note(tr("Recording to %1").arg(m_recorder.fileName())); });
    connect(&m_recorder, &CLogRecorder::ended, this, [this](const QString& problem) {
        problem.isEmpty() ? note(tr("Recording ended, messages: %1").arg(m_recorder.count())) : warn(problem);
    });
    connect(&m_fetchTimer, &QTimer::timeout, this, &CWorkbench::fetch);
    connect(&m_sampleTimer, &QTimer::timeout, this, &CWorkbench::sampleStates);
    m_fetchTimer.start(FETCH_INTERVAL_MS);
    m_sampleTimer.start(SAMPLE_INTERVAL_MS);
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
    if (!m_scan.isRunning() && m_scan.start()) {
        warn(tr("The scan could not be started. Another one may be running."));
    } else {
        Q_EMIT progressed(tr("Scanning the network, which takes over 4 s ..."), false);
    }
}

void CWorkbench::addFound()
{
    const auto [count, added] = m_interfaces.addFound(std::move(m_scan.found()));
    const QString text = tr("Scan finished: %1 found, %2 new").arg(count).arg(added);
    if (count > 0) {
        note(text);
    } else {
        warn(tr("Scan finished: no gateway answered. Check in turn:\n"
                "- Is the gateway switched on, and on the same switch? A broadcast does not pass a router, and rarely "
                "a WLAN.\n"
                "- Does this computer have an address in the gateway's subnet?\n"
                "- Does a firewall drop UDP datagrams from port 33333?\n"
                "- Behind a router: add the interface by its address."));
    }
    Q_EMIT progressed(count > 0 ? text : tr("%1. Events shows what to check.").arg(text), true);
    Q_EMIT scanEnded(added);
}

QString CWorkbench::statistics() const
{
    const auto errorText = [this](std::uint16_t source, int error) {
        return m_interfaces.eventOf(SErrorRecord{0, source, error}).text;
    };
    const auto name = [this](std::uint16_t source) { return m_names.name(source); };
    return m_statistics.text(microsecondsNow(), name, errorText);
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
    m_mailbox->take(m_delivery);
    m_statistics.add(m_delivery);
    reportRefused();
    m_fetched += m_delivery.records.size();
    m_feed.addLive(m_delivery.records);
    m_recorder.record(m_delivery.records);
    m_sendList.countSent(m_delivery.records, m_names);
    m_interfaces.noteErrors(m_delivery);
    for (const SErrorRecord& error : m_delivery.errors) {
        m_events.add(m_interfaces.eventOf(error));
    }
    if (m_delivery.lost > 0) {
        warn(tr("The window was busy for too long: %1 messages were lost.").arg(m_delivery.lost));
    }
}

/// Reports refused messages as events and removes them from the messages to show.
void CWorkbench::reportRefused()
{
    auto& records = m_delivery.records;
    for (const SBusRecord& record : records) {
        if (record.code != 0) {
            m_events.add(m_interfaces.eventOf(record));
        }
    }
    const auto isRefused = [](const SBusRecord& record) { return record.code != 0; };
    records.erase(std::remove_if(records.begin(), records.end(), isRefused), records.end());
}

void CWorkbench::sampleStates()
{
    for (int row = 0; row < m_interfaces.rowCount(); ++row) {
        const CManagedInterface& one = m_interfaces.at(row);
        if (one.isUnreachable()) {
            m_feed.identifiers().interrupt(m_names.numberOf(one.name()), microsecondsNow());
        }
        m_busloads.add(one.name(), {microsecondsNow(), one.status().busload});
        m_statistics.addLoad(m_names.numberOf(one.name()), one.status().busload);
    }
    m_interfaces.refreshStates();
}

} // namespace vexmor::Apps::Cimview
