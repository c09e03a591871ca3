#pragma once

#include "apps/cimview/identifierModel.h"
#include "apps/cimview/traceModel.h"

#include <QObject>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Adds messages to the trace and to the view by identifier. While the display is paused, live messages are held back,
/// at most as many as fit into a trace, and added when the pause ends.
class CMessageFeed : public QObject
{
    Q_OBJECT

public:
    explicit CMessageFeed(const CSourceNames& names, std::size_t capacity = CTraceModel::CAPACITY);

    CTraceModel& trace() { return m_trace; }
    CIdentifierModel& identifiers() { return m_identifiers; }

    /// Adds live messages, or holds them back during a pause.
    void addLive(const std::vector<SBusRecord>& records);
    /// Adds messages, during a pause as well.
    void show(const std::vector<SBusRecord>& records);
    /// Shows the messages of a log in place of all other messages, and starts a pause.
    void showLog(const QString& name, const std::vector<SBusRecord>& records);
    /// Returns the name of the log that is shown, or an empty name.
    const QString& log() const { return m_log; }
    /// Starts or ends a pause. At its end, the messages that were held back are added; a log is no longer shown.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }
    /// Returns the number of messages that are held back.
    std::size_t waitingCount() const { return m_waiting.size(); }
    /// Removes all messages, also those that are held back.
    void clear();
    /// Returns the number of live messages so far.
    std::uint64_t liveCount() const { return m_live; }
    /// Returns true when some live messages are neither saved nor cleared.
    bool isUnsaved() const { return m_live > m_settled; }
    /// Notes that the first `count` live messages are saved.
    void markSaved(std::uint64_t count) { m_settled = std::max(m_settled, count); }

Q_SIGNALS:
    void pausedChanged(bool paused);
    void logChanged(const QString& name);

private:
    void removeShown();

    const std::size_t m_capacity;
    CTraceModel m_trace;
    CIdentifierModel m_identifiers;
    bool m_paused = false;
    QString m_log;
    std::uint64_t m_live = 0;
    std::uint64_t m_settled = 0; ///< Number of live messages that are saved or cleared.
    std::vector<SBusRecord> m_waiting;
};

} // namespace vexmor::Apps::Cimview
