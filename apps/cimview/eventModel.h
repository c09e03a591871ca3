#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"
#include "apps/host/mailbox.h"

#include <QString>

#include <deque>

namespace vexmor::Apps::Cimview
{

/// What a row of the event log is about.
enum class EEvent {
    eInterfaceError, ///< an error that an interface raised
    eResult,         ///< an operation was refused with a code
    eWarning,        ///< something was lost or did not work, without a number
    eNote            ///< a notice
};

struct SEvent {
    std::int64_t microseconds = 0; ///< since the epoch; of the first, when it happened more than once
    EEvent kind = EEvent::eNote;
    QString source;          ///< name of the interface; empty: the program
    int number = 0;          ///< of the error, or the code
    std::uint64_t count = 1; ///< how often it happened in a row
    QString text;            ///< the whole text
};

/// An event that happens now.
SEvent eventNow(EEvent kind, const QString& text, const QString& source = {}, int number = 0);

/// The event log, oldest first: the last 10,000 events. Events of one kind that follow each other within a second share
/// a row, so that a flood removes no others. Counts the events that the user has not seen yet.
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
    /// Number of events but notes since the last call of `markRead`.
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
