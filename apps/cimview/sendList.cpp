#include "apps/cimview/sendList.h"

#include "apps/cimview/messageText.h"
#include "canlog/candumpLog.h"

#include <QSettings>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimview
{
namespace
{
const QString ARRAY = QStringLiteral("SendList");
const QString FRAME = QStringLiteral("Frame");
const QString INTERVAL = QStringLiteral("Interval");
const QString NAME = QStringLiteral("Comment");
const QString INTERFACE = QStringLiteral("Interface");
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

CSendList::CSendList(Obstacle obstacle)
    : CTableModel({tr("Cyclic"), tr("Name"), tr("ID"), tr("Data"), tr("Every [ms]"), tr("Sent"), tr("On")}),
      m_obstacle(std::move(obstacle))
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

void CSendList::countSent(const std::vector<SBusRecord>& records, const CSourceNames& names)
{
    bool isNew = false;
    for (const SBusRecord& record : records) {
        for (auto item = m_items.begin(); record.sent && item != m_items.end(); ++item) {
            if (record.message == item->message &&
                names.name(record.source) == (item->sentOn.isEmpty() ? interfaceOf(*item) : item->sentOn)) {
                ++item->sent;
                isNew = true;
            }
        }
    }
    if (isNew) {
        Q_EMIT dataChanged(index(0, eSent), index(rowCount() - 1, eSent));
    }
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
    Q_EMIT dataChanged(index(row, 0), index(row, eColumnCount - 1));
    const bool ends = interface.isEmpty();
    Q_EMIT cyclicChanged(changed.key, ends ? before : interface, changed.message, ends ? 0 : changed.milliseconds);
}

void CSendList::load(QSettings& settings)
{
    const int count = std::min(settings.beginReadArray(ARRAY), MAX_LOADED);
    for (int i = 0; i < count; ++i) {
        settings.setArrayIndex(i);
        if (auto message = CanLog::parseFrame(settings.value(FRAME).toByteArray())) {
            SSendItem item;
            item.message = *message;
            item.milliseconds = qBound(1, settings.value(INTERVAL, DEFAULT_INTERVAL_MS).toInt(), MAX_INTERVAL_MS);
            item.name = settings.value(NAME).toString();
            item.interface = settings.value(INTERFACE).toString();
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
        settings.setValue(NAME, item(i).name);
        settings.setValue(INTERFACE, item(i).interface);
    }
    settings.endArray();
}

Qt::ItemFlags CSendList::flags(const QModelIndex& index) const
{
    if (!index.isValid()) {
        return QAbstractTableModel::flags(index);
    }
    const Qt::ItemFlags common = QAbstractTableModel::flags(index);
    if (index.column() == eSent) {
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
    if (role == MARK_ROLE && !shown.sentOn.isEmpty()) {
        return static_cast<int>(EMark::eGood);
    }
    if (role != Qt::DisplayRole && role != Qt::EditRole) {
        return {};
    }
    switch (index.column()) {
    case eName:
        return shown.name;
    case eId:
        return idText(shown.message);
    case eData:
        return dataText(shown.message);
    case eInterval:
        return shown.milliseconds;
    case eSent:
        return QString::number(shown.sent);
    case eInterface:
        return shown.sentOn.isEmpty() ? shown.interface : shown.sentOn;
    default:
        return {};
    }
}

bool CSendList::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role == Qt::CheckStateRole && index.column() == eCyclic) {
        const bool starts = value.toInt() == Qt::Checked;
        const QString interface = interfaceOf(item(index.row()));
        const Failure obstacle = starts && m_obstacle ? m_obstacle(interface) : Failure();
        if (obstacle) {
            Q_EMIT refused(obstacle->text);
            return false;
        }
        setSentOn(index.row(), starts ? interface : QString());
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
    if (index.column() == eInterface) { // stops the cyclic sending; the user starts it on the new interface
        setSentOn(index.row(), QString());
    } else if (!changed.sentOn.isEmpty() && index.column() != eName) {
        Q_EMIT cyclicChanged(changed.key, changed.sentOn, changed.message, changed.milliseconds);
    }
    return true;
}

Failure CSendList::edit(SSendItem& item, int column, const QString& text)
{
    if (column == eName || column == eInterface) {
        (column == eName ? item.name : item.interface) = text;
        return {};
    }
    if (column == eInterval) {
        const int milliseconds = text.toInt(); // 0 when the text is not a number
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
    item.sent = 0;
    return {};
}

} // namespace vexmor::Apps::Cimview
