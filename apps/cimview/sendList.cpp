#include "apps/cimview/sendList.h"

#include "apps/cimview/messageText.h"
#include "canlog/candumpLog.h"

#include <QSettings>

#include <utility>

namespace vexmor::Apps::Cimview
{
namespace
{
const QString ARRAY = QStringLiteral("SendList");
const QString FRAME = QStringLiteral("Frame");
const QString INTERVAL = QStringLiteral("Interval");
const QString COMMENT = QStringLiteral("Comment");
} // namespace

Result<Cim::CCanMessage> readMessage(const QString& id, const QString& data)
{
    if (id.trimmed().isEmpty()) {
        return wrongUsage(CSendList::tr("The identifier is missing: it must be hexadecimal, 0 to 7FF."));
    }
    const QString frame =
        id.trimmed().rightJustified(3, QLatin1Char('0')) + QLatin1Char('#') + QString(data).remove(QLatin1Char(' '));
    return CanLog::parseFrame(frame.toLatin1());
}

CSendList::CSendList()
    : CTableModel({tr("Cyclic"), tr("Sent on"), tr("ID"), tr("Data"), tr("Interval [ms]"), tr("Comment")})
{
}

void CSendList::add(const SSendItem& item)
{
    beginInsertRows({}, rowCount(), rowCount());
    m_items.push_back(item);
    m_items.back().key = m_nextKey++;
    m_items.back().sentOn.clear();
    endInsertRows();
}

void CSendList::remove(int row)
{
    setSentOn(row, QString());
    beginRemoveRows({}, row, row);
    m_items.erase(m_items.begin() + row);
    endRemoveRows();
}

void CSendList::setTarget(const QString& interface, const Failure& obstacle)
{
    m_target = interface;
    m_obstacle = obstacle;
}

void CSendList::stopAllBut(const QStringList& interfaces)
{
    for (int row = 0; row < rowCount(); ++row) {
        if (!interfaces.contains(item(row).sentOn)) {
            setSentOn(row, QString());
        }
    }
}

void CSendList::setSentOn(int row, const QString& interface)
{
    SSendItem& changed = m_items[static_cast<std::size_t>(row)];
    const QString before = std::exchange(changed.sentOn, interface);
    if (before == interface) {
        return;
    }
    Q_EMIT dataChanged(index(row, eCyclic), index(row, eSentOn));
    const bool ends = interface.isEmpty();
    Q_EMIT cyclicChanged(changed.key, ends ? before : interface, changed.message, ends ? 0 : changed.milliseconds);
}

void CSendList::load(QSettings& settings)
{
    const int count = settings.beginReadArray(ARRAY);
    for (int i = 0; i < count; ++i) {
        settings.setArrayIndex(i);
        if (auto message = CanLog::parseFrame(settings.value(FRAME).toByteArray())) {
            SSendItem item;
            item.message = *message;
            item.milliseconds = qBound(1, settings.value(INTERVAL, DEFAULT_INTERVAL_MS).toInt(), MAX_INTERVAL_MS);
            item.comment = settings.value(COMMENT).toString();
            add(item);
        }
    }
    settings.endArray();
}

void CSendList::save(QSettings& settings) const
{
    settings.remove(ARRAY);
    settings.beginWriteArray(ARRAY, rowCount());
    for (int i = 0; i < rowCount(); ++i) {
        settings.setArrayIndex(i);
        settings.setValue(FRAME, QString::fromLatin1(CanLog::formatFrame(item(i).message)));
        settings.setValue(INTERVAL, item(i).milliseconds);
        settings.setValue(COMMENT, item(i).comment);
    }
    settings.endArray();
}

Qt::ItemFlags CSendList::flags(const QModelIndex& index) const
{
    if (!index.isValid()) {
        return QAbstractTableModel::flags(index);
    }
    const Qt::ItemFlags common = QAbstractTableModel::flags(index);
    if (index.column() == eSentOn) {
        return common;
    }
    return common | (index.column() == eCyclic ? Qt::ItemIsUserCheckable : Qt::ItemIsEditable);
}

QVariant CSendList::data(const QModelIndex& index, int role) const
{
    const SSendItem& shown = item(index.row());
    if (role == Qt::CheckStateRole && index.column() == eCyclic) {
        return shown.sentOn.isEmpty() ? Qt::Unchecked : Qt::Checked;
    }
    if (role != Qt::DisplayRole && role != Qt::EditRole) {
        return {};
    }
    switch (index.column()) {
    case eSentOn:
        return shown.sentOn;
    case eId:
        return idText(shown.message);
    case eData:
        return dataText(shown.message);
    case eInterval:
        return shown.milliseconds;
    case eComment:
        return shown.comment;
    default:
        return {};
    }
}

bool CSendList::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role == Qt::CheckStateRole && index.column() == eCyclic) {
        const bool starts = value.toInt() == Qt::Checked;
        if (starts && m_obstacle) {
            Q_EMIT refused(m_obstacle->text);
            return false;
        }
        setSentOn(index.row(), starts ? m_target : QString());
        return true;
    }
    if (role != Qt::EditRole) {
        return false;
    }
    SSendItem& changed = m_items[static_cast<std::size_t>(index.row())];
    if (const Failure failure = edit(changed, index.column(), value.toString())) {
        Q_EMIT refused(failure->text);
        return false;
    }
    Q_EMIT dataChanged(index, index);
    if (!changed.sentOn.isEmpty() && index.column() != eComment) {
        Q_EMIT cyclicChanged(changed.key, changed.sentOn, changed.message, changed.milliseconds);
    }
    return true;
}

Failure CSendList::edit(SSendItem& item, int column, const QString& text)
{
    if (column == eComment) {
        item.comment = text;
        return {};
    }
    if (column == eInterval) {
        const int milliseconds = text.toInt(); // 0 where it is no number
        if (milliseconds < 1 || milliseconds > MAX_INTERVAL_MS) {
            return wrongUsage(tr("interval %1: must be 1 to %2 ms").arg(text).arg(MAX_INTERVAL_MS));
        }
        item.milliseconds = milliseconds;
        return {};
    }
    Result<Cim::CCanMessage> message =
        readMessage(column == eId ? text : idText(item.message), column == eData ? text : dataText(item.message));
    if (!message) {
        return message.problem();
    }
    item.message = *message;
    return {};
}

} // namespace vexmor::Apps::Cimview
