#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"
#include "apps/host/mailbox.h"

#include <QString>

#include <deque>

namespace vexmor::Apps::Cimview
{

/// The kinds of events in the event log.
enum class EEvent {
    eInterfaceError, ///< An error that an interface raised.
    eResult,         ///< An operation that was refused with a code.
    eWarning,        ///< A loss or a failure without a number.
    eNote            ///< A notice, which does not count as unread.
};

/// An event in the event log.
struct SEvent {
    std::int64_t microseconds = 0; ///< Time of the first occurrence, since the epoch.
    EEvent kind = EEvent::eNote;
    QString source;          ///< Name of the interface; empty for the program itself.
    int number = 0;          ///< Number of the error, or the code.
    std::uint64_t count = 1; ///< Number of occurrences in a row.
    QString text;            ///< The whole text; the table shows its first line.
};

/// Returns an event with the present time.
SEvent eventNow(EEvent kind, const QString& text, const QString& source = {}, int number = 0);

/// The event log: the last 10,000 events, oldest first. Equal events that follow each other within a second share a
/// row, so that a flood of one event does not push out the other events. Counts the events that the user has not seen.
class CEventModel : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eTime, eSource, eNumber, eCount, eText };
    static constexpr std::size_t CAPACITY = 10000;

    CEventModel();

    void add(const SEvent& event);
    void clear();
    const SEvent& eventAt(int row) const { return m_rows[static_cast<std::size_t>(row)].event; }
    /// Returns the number of events since the last call of `markRead`, notices not counted.
    int unread() const { return m_unread; }
    void markRead() { setUnread(0); }

    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    void unreadChanged(int unread);

private:
    struct SRow {
        SEvent event;
        std::int64_t lastMicroseconds = 0;
    };

    std::size_t shownRows() const override { return m_rows.size(); }
    bool joinLast(const SEvent& event);
    void setUnread(int unread);

    std::deque<SRow> m_rows;
    int m_unread = 0;
};

} // namespace vexmor::Apps::Cimview
