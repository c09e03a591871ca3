#include "apps/cimview/eventModel.h"

#include "apps/cimview/messageText.h"
#include "apps/host/clock.h"

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr std::int64_t JOIN_MICROSECONDS = 1000000;
}

SEvent eventNow(EEvent kind, const QString& text, const QString& source, int number)
{
    return {microsecondsNow(), kind, source, number, 1, text};
}

CEventModel::CEventModel() : CTableModel({tr("Time"), tr("Interface"), tr("Number"), tr("Times"), tr("Event")}) {}

void CEventModel::add(const SEvent& event)
{
    if (event.kind != EEvent::eNote) {
        setUnread(m_unread + static_cast<int>(event.count));
    }
    if (joinLast(event)) {
        return;
    }
    if (m_rows.size() == CAPACITY) {
        beginRemoveRows({}, 0, 0);
        m_rows.pop_front();
        endRemoveRows();
    }
    beginInsertRows({}, rowCount(), rowCount());
    m_rows.push_back({event, event.microseconds});
    endInsertRows();
}

bool CEventModel::joinLast(const SEvent& event)
{
    if (m_rows.empty()) {
        return false;
    }
    SRow& last = m_rows.back();
    const SEvent& other = last.event;
    if (other.kind != event.kind || other.number != event.number || other.source != event.source ||
        other.text != event.text || event.microseconds - last.lastMicroseconds > JOIN_MICROSECONDS) {
        return false;
    }
    last.event.count += event.count;
    last.lastMicroseconds = event.microseconds;
    Q_EMIT dataChanged(index(rowCount() - 1, eCount), index(rowCount() - 1, eCount));
    return true;
}

void CEventModel::clear()
{
    beginResetModel();
    m_rows.clear();
    endResetModel();
    markRead();
}

void CEventModel::setUnread(int unread)
{
    if (unread != m_unread) {
        m_unread = unread;
        Q_EMIT unreadChanged(unread);
    }
}

QVariant CEventModel::data(const QModelIndex& index, int role) const
{
    const SEvent& shown = eventAt(index.row());
    if (role == Qt::ToolTipRole) {
        return shown.text;
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    switch (index.column()) {
    case eTime:
        return timeText(shown.microseconds).chopped(3);
    case eSource:
        return shown.source;
    case eNumber:
        switch (shown.kind) {
        case EEvent::eInterfaceError:
            return tr("error %1").arg(shown.number);
        case EEvent::eResult:
            return tr("code %1").arg(shown.number);
        case EEvent::eWarning:
            return tr("warning");
        case EEvent::eNote:
            return {};
        }
        return {};
    case eCount:
        return shown.count == 1 ? QString() : QString::number(shown.count);
    case eText:
        return shown.text.section(QLatin1Char('\n'), 0, 0);
    default:
        return {};
    }
}

} // namespace vexmor::Apps::Cimview
