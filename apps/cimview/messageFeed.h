#pragma once

#include "apps/cimview/identifierModel.h"
#include "apps/cimview/traceModel.h"

#include <QObject>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Adds messages to both models. While the display is paused it holds live ones back, the last that a trace has room
/// for, and shows them when the pause ends.
class CMessageFeed : public QObject
{
    Q_OBJECT

public:
    explicit CMessageFeed(const CSourceNames& names, std::size_t capacity = CTraceModel::CAPACITY);

    CTraceModel& trace() { return m_trace; }
    CIdentifierModel& identifiers() { return m_identifiers; }

    /// Adds live messages, or holds them back in a pause.
    void addLive(const std::vector<SBusRecord>& records);
    /// Adds messages, in a pause as well.
    void show(const std::vector<SBusRecord>& records);
    /// Shows the messages of a log in place of all others; a pause begins.
    void showLog(const QString& name, const std::vector<SBusRecord>& records);
    /// The name of the log that is shown; empty: none.
    const QString& log() const { return m_log; }
    /// Holds live messages back, or shows those that were held back, in place of a log.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }
    /// Number of messages that are held back.
    std::size_t waitingCount() const { return m_waiting.size(); }
    /// Removes all messages, those that are held back as well.
    void clear();
    /// Live messages added so far.
    std::uint64_t liveCount() const { return m_live; }
    /// True when live messages were added that are neither saved nor cleared.
    bool isUnsaved() const { return m_live > m_settled; }
    /// The first so many live messages are saved.
    void markSaved(std::uint64_t count) { m_settled = std::max(m_settled, count); }

Q_SIGNALS:
    void pausedChanged(bool paused);
    void logChanged(const QString& name);

private:
    void empty();

    const std::size_t m_capacity;
    CTraceModel m_trace;
    CIdentifierModel m_identifiers;
    bool m_paused = false;
    QString m_log;
    std::uint64_t m_live = 0;
    std::uint64_t m_settled = 0; ///< live messages that are saved or cleared
    std::vector<SBusRecord> m_waiting;
};

} // namespace vexmor::Apps::Cimview
