#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/host/mailbox.h"

#include <QAbstractTableModel>
#include <QString>

#include <deque>

namespace vexmor::Apps::Cimview
{

/// What a row of the event log tells of.
enum class EEvent {
    eInterfaceError, ///< trouble that arose on its own
    eResult,         ///< an operation was refused with a code
    eWarning,        ///< something was lost or did not work, without a number
    eNote            ///< for the user to know
};

struct SEvent {
    std::int64_t microseconds = 0; ///< since the epoch; of the first, when it happened more than once
    EEvent kind = EEvent::eNote;
    QString source;          ///< name of the interface; empty: the program
    int number = 0;          ///< of the error, or the code
    std::uint64_t count = 1; ///< how often, one after the other
    QString text;            ///< all of it
};

/// The event log, oldest first: the last 10,000 events. Events of one kind that follow each other within a second share
/// a row, so that a flood pushes out nothing else. Counts what the user has not seen yet.
class CEventModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum EColumn { eTime, eSource, eNumber, eCount, eText, eColumnCount };
    static constexpr std::size_t CAPACITY = 10000;

    using QAbstractTableModel::QAbstractTableModel;

    void add(const SEvent& event);
    void clear();
    const SEvent& eventAt(int row) const { return m_rows[static_cast<std::size_t>(row)].event; }
    /// Errors and refusals since the user looked.
    int unread() const { return m_unread; }
    void markRead();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    void unreadChanged(int unread);

private:
    struct SRow {
        SEvent event;
        std::int64_t lastMicroseconds = 0;
    };

    bool joinLast(const SEvent& event);
    void setUnread(int unread);

    std::deque<SRow> m_rows;
    int m_unread = 0;
};

} // namespace vexmor::Apps::Cimview
