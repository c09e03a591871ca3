#include "apps/cimview/messageFeed.h"

#include "apps/host/clock.h"

namespace vexmor::Apps::Cimview
{

CMessageFeed::CMessageFeed(const CSourceNames& names, std::size_t capacity)
    : m_capacity(capacity), m_trace(names, capacity), m_identifiers(names)
{
}

void CMessageFeed::addLive(const std::vector<SBusRecord>& records)
{
    m_live += records.size();
    if (!m_paused) {
        show(records);
        m_identifiers.setNow(microsecondsNow());
        return;
    }
    m_waiting.insert(m_waiting.end(), records.begin(), records.end());
    if (m_waiting.size() > m_capacity) {
        // Removing messages is slow, so many are removed at once.
        const std::size_t excess = m_waiting.size() - m_capacity + m_capacity / 10;
        m_waiting.erase(m_waiting.begin(), m_waiting.begin() + static_cast<std::ptrdiff_t>(excess));
    }
}

void CMessageFeed::show(const std::vector<SBusRecord>& records)
{
    if (!records.empty()) {
        m_trace.append(records);
        m_identifiers.append(records);
    }
}

void CMessageFeed::showLog(const QString& name, const std::vector<SBusRecord>& records)
{
    clear();
    setPaused(true);
    show(records);
    m_log = name;
    Q_EMIT logChanged(m_log);
}

void CMessageFeed::setPaused(bool paused)
{
    if (paused == m_paused) {
        return;
    }
    m_paused = paused;
    if (!paused) {
        if (!m_log.isEmpty()) {
            removeShown();
        }
        show(m_waiting);
        m_waiting = {}; // frees the memory
    }
    Q_EMIT pausedChanged(paused);
}

void CMessageFeed::clear()
{
    m_settled = m_live;
    m_waiting = {};
    removeShown();
}

void CMessageFeed::removeShown()
{
    m_trace.clear();
    m_identifiers.clear();
    m_log.clear();
    Q_EMIT logChanged(m_log);
}

} // namespace vexmor::Apps::Cimview
