#pragma once

#include "apps/host/mailbox.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Sends messages at the pace at which they were received, or at a multiple of it, once or again and again. Window
/// thread only: some milliseconds late while that is busy.
class CLogReplay : public QObject
{
    Q_OBJECT

public:
    /// Returns false when the message cannot be sent any more: then the replay ends.
    using Send = std::function<bool(const Cim::CCanMessage& message)>;

    CLogReplay();
    void start(std::vector<SBusRecord> records, Send send);
    void stop();
    /// 1: the pace of the messages. Also while it runs.
    void setSpeed(double speed);
    void setLoop(bool loops) { m_loops = loops; }

Q_SIGNALS:
    /// So many of the messages were sent, in this round.
    void progressed(int sent, int all);
    /// Number of messages sent.
    void finished(quint64 count);

private:
    std::int64_t position() const;
    void continueAt(std::int64_t microseconds);
    void sendDue();

    std::vector<SBusRecord> m_records;
    Send m_send;
    std::size_t m_next = 0;
    quint64 m_sent = 0; ///< in all rounds
    bool m_loops = false;
    double m_speed = 1;
    std::int64_t m_position = 0; ///< microseconds behind the first message when the clock was started
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
