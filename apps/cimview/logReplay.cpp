#include "apps/cimview/logReplay.h"

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int TICK_MS = 5;
constexpr std::int64_t MICROSECONDS_PER_MS = 1000;
} // namespace

CLogReplay::CLogReplay()
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &CLogReplay::sendDue);
}

void CLogReplay::start(std::vector<SBusRecord> records, Send send)
{
    m_records = std::move(records);
    m_send = std::move(send);
    m_next = 0;
    m_clock.start();
    m_timer.start(TICK_MS);
}

void CLogReplay::stop()
{
    if (m_timer.isActive()) {
        m_timer.stop();
        Q_EMIT finished(m_next);
    }
}

void CLogReplay::sendDue()
{
    const std::int64_t now = m_clock.elapsed() * MICROSECONDS_PER_MS;
    while (m_next < m_records.size() && m_records[m_next].microseconds - m_records.front().microseconds <= now) {
        if (!m_send(m_records[m_next].message)) {
            stop();
            return;
        }
        ++m_next;
    }
    if (m_next == m_records.size()) {
        stop();
    }
}

} // namespace vexmor::Apps::Cimview
