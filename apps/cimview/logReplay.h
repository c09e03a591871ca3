#pragma once

#include "apps/host/mailbox.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Sends messages at the pace at which they were received, or at a multiple of it, once or in a loop. Used in the
/// window's thread only; messages leave some milliseconds late while this thread is busy.
class CLogReplay : public QObject
{
    Q_OBJECT

public:
    /// Sends a message. Returns false when it cannot be sent; the replay then ends.
    using Send = std::function<bool(const Cim::CCanMessage& message)>;

    CLogReplay();
    void start(std::vector<SBusRecord> records, Send send);
    void stop();
    /// Sets the speed factor; 1 is the pace of the messages. Can be called while a replay runs.
    void setSpeed(double speed);
    void setLoop(bool loops) { m_loops = loops; }

Q_SIGNALS:
    /// Reports how many of all messages were sent in the present round.
    void progressed(int sent, int all);
    /// Reports the number of messages sent in all rounds.
    void finished(quint64 count);

private:
    std::int64_t position() const;
    void continueAt(std::int64_t microseconds);
    void sendDue();

    std::vector<SBusRecord> m_records;
    Send m_send;
    std::size_t m_next = 0;
    quint64 m_sent = 0; ///< Messages sent in all rounds.
    bool m_loops = false;
    double m_speed = 1;
    std::int64_t m_position = 0; ///< Position in the log when `m_clock` was started, in microseconds.
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
