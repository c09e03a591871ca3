#pragma once

#include "apps/cimview/traceRecord.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Hands messages on at the pace at which they once came. Window thread only: some milliseconds late while that is
/// busy.
class CLogReplay : public QObject
{
    Q_OBJECT

public:
    /// `send` gives false when there is nobody to send to any more: then the replay ends.
    using Send = std::function<bool(const Cim::CCanMessage& message)>;

    CLogReplay();
    void start(std::vector<STraceRecord> records, Send send);
    void stop();

Q_SIGNALS:
    /// So many were handed on.
    void finished(quint64 count);

private:
    void sendDue();

    std::vector<STraceRecord> m_records;
    Send m_send;
    std::size_t m_next = 0;
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
