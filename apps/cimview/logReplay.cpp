#include "apps/cimview/logReplay.h"

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int TICK_MS = 5;
constexpr int SENT_PER_TURN = 1000; ///< Maximum number of messages per turn of the event loop.
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
    m_sent = 0;
    continueAt(0);
    m_timer.start(TICK_MS);
}

void CLogReplay::stop()
{
    if (m_timer.isActive()) {
        m_timer.stop();
        Q_EMIT finished(m_sent);
    }
}

void CLogReplay::setSpeed(double speed)
{
    continueAt(position());
    m_speed = speed;
}

std::int64_t CLogReplay::position() const
{
    return m_position + static_cast<std::int64_t>(static_cast<double>(m_clock.elapsed()) * 1000 * m_speed);
}

void CLogReplay::continueAt(std::int64_t microseconds)
{
    m_position = microseconds;
    m_clock.start();
}

void CLogReplay::sendDue()
{
    const std::int64_t due = position();
    for (int i = 0; i < SENT_PER_TURN && m_next < m_records.size(); ++i) {
        const SBusRecord& record = m_records[m_next];
        if (record.microseconds - m_records.front().microseconds > due) {
            break;
        }
        if (!m_send(record.message)) {
            stop();
            return;
        }
        ++m_next;
        ++m_sent;
    }
    Q_EMIT progressed(static_cast<int>(m_next), static_cast<int>(m_records.size()));
    if (m_next < m_records.size()) {
        return;
    }
    if (m_loops && m_next > 0) {
        m_next = 0;
        continueAt(0);
    } else {
        stop();
    }
}

} // namespace vexmor::Apps::Cimview
