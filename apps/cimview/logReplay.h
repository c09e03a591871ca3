#pragma once

#include "apps/host/mailbox.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Sends messages at the pace at which they were received. Window thread only: some milliseconds late while that is
/// busy.
class CLogReplay : public QObject
{
    Q_OBJECT

public:
    /// Returns false when the message cannot be sent any more: then the replay ends.
    using Send = std::function<bool(const Cim::CCanMessage& message)>;

    CLogReplay();
    void start(std::vector<SBusRecord> records, Send send);
    void stop();

Q_SIGNALS:
    /// Number of messages sent.
    void finished(quint64 count);

private:
    void sendDue();

    std::vector<SBusRecord> m_records;
    Send m_send;
    std::size_t m_next = 0;
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
