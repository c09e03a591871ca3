#pragma once

#include "apps/cimview/identifierModel.h"
#include "apps/cimview/traceModel.h"

#include <QObject>

#include <vector>

namespace vexmor::Apps::Cimview
{

/// Feeds the messages to both models, and holds them back while the user has paused the display: they are shown
/// afterwards, as many of them as a trace holds.
class CMessageFeed : public QObject
{
    Q_OBJECT

public:
    explicit CMessageFeed(const CSourceNames& names, std::size_t capacity = CTraceModel::CAPACITY);

    CTraceModel& trace() { return m_trace; }
    CIdentifierModel& identifiers() { return m_identifiers; }

    /// Live messages, in order.
    void feed(const std::vector<STraceRecord>& records);
    /// Messages of a log: shown at once.
    void show(const std::vector<STraceRecord>& records);
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }
    /// Messages that are held back.
    std::size_t heldBack() const { return m_waiting.size(); }
    /// Forgets everything, what is held back as well.
    void clear();
    /// True when live messages came since it was cleared, or `markSaved` was called.
    bool isUnsaved() const { return m_unsaved; }
    void markSaved() { m_unsaved = false; }

private:
    const std::size_t m_capacity;
    CTraceModel m_trace;
    CIdentifierModel m_identifiers;
    bool m_paused = false;
    bool m_unsaved = false;
    std::vector<STraceRecord> m_waiting;
};

} // namespace vexmor::Apps::Cimview
