#include "apps/cimview/traceModel.h"

#include "canlog/candumpLog.h"

#include <algorithm>

namespace vexmor::Apps::Cimview
{

CTraceModel::CTraceModel(const CSourceNames& names, std::size_t capacity)
    : CTableModel({tr("Time"), tr("Interface"), tr("Dir"), tr("ID"), tr("Data"), tr("ASCII"), tr("Administration")}),
      m_names(names),
      m_capacity(capacity)
{
}

void CTraceModel::append(const std::vector<SBusRecord>& records)
{
    if (m_records.empty() && !records.empty()) {
        m_start = records.front().microseconds;
    }
    const std::size_t count = std::min(records.size(), m_capacity);
    makeRoom(count);
    std::vector<Serial> fresh;
    for (auto record = records.end() - static_cast<std::ptrdiff_t>(count); record != records.end(); ++record) {
        if (matches(*record)) {
            fresh.push_back(m_first + m_records.size());
        }
        m_records.push_back(*record);
    }
    if (!fresh.empty()) {
        const int first = rowCount();
        beginInsertRows({}, first, first + static_cast<int>(fresh.size()) - 1);
        m_rows.insert(m_rows.end(), fresh.begin(), fresh.end());
        endInsertRows();
    }
}

void CTraceModel::makeRoom(std::size_t count)
{
    if (m_records.size() + count <= m_capacity) {
        return;
    }
    const std::size_t wanted = std::max(m_records.size() + count - m_capacity, m_capacity / 10);
    const std::size_t dropped = std::min(wanted, m_records.size());
    const auto firstKept = std::lower_bound(m_rows.begin(), m_rows.end(), m_first + dropped);
    const auto removedRows = static_cast<int>(firstKept - m_rows.begin());
    if (removedRows > 0) {
        beginRemoveRows({}, 0, removedRows - 1);
        m_rows.erase(m_rows.begin(), firstKept);
    }
    m_records.erase(m_records.begin(), m_records.begin() + static_cast<std::ptrdiff_t>(dropped));
    m_first += dropped;
    if (removedRows > 0) {
        endRemoveRows();
    }
}

void CTraceModel::clear()
{
    beginResetModel();
    m_first += m_records.size();
    m_records.clear();
    m_rows.clear();
    endResetModel();
}

void CTraceModel::setMatcher(const CMessageMatcher& matcher)
{
    beginResetModel();
    m_matcher = matcher;
    m_rows.clear();
    for (std::size_t i = 0; i < m_records.size(); ++i) {
        if (matches(m_records[i])) {
            m_rows.push_back(m_first + i);
        }
    }
    endResetModel();
}

void CTraceModel::setTime(ETime time)
{
    m_time = time;
    if (rowCount() > 0) {
        Q_EMIT dataChanged(index(0, eTime), index(rowCount() - 1, eTime));
    }
}

QString CTraceModel::shownTime(int row) const
{
    const std::int64_t microseconds = record(row).microseconds;
    if (m_time == ETime::eOfDay) {
        return timeText(microseconds);
    }
    const std::int64_t start = m_time == ETime::eSinceStart ? m_start : record(std::max(row - 1, 0)).microseconds;
    return QString::number(static_cast<double>(microseconds - start) / 1e6, 'f', 6);
}

bool CTraceModel::matches(const SBusRecord& record) const
{
    return m_matcher.matches(record, m_names);
}

const SBusRecord& CTraceModel::record(int row) const
{
    return m_records[m_rows[static_cast<std::size_t>(row)] - m_first];
}

std::vector<SBusRecord> CTraceModel::records() const
{
    std::vector<SBusRecord> records;
    records.reserve(m_rows.size());
    for (const Serial serial : m_rows) {
        records.push_back(m_records[serial - m_first]);
    }
    return records;
}

QVariant CTraceModel::data(const QModelIndex& index, int role) const
{
    const SBusRecord& shown = record(index.row());
    if (role == Qt::ToolTipRole && index.column() == eTime) {
        return dateText(shown.microseconds);
    }
    if (role == MARK_ROLE && CanLog::errorOf(shown.message) != 0) {
        return static_cast<int>(EMark::eBad);
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    switch (index.column()) {
    case eTime:
        return shownTime(index.row());
    case eInterface:
        return m_names.name(shown.source);
    case eDirection:
        return directionText(shown.sent);
    case eId:
        return m_names.idText(shown.message.id().value());
    case eData:
        return dataText(shown.message);
    case eAscii:
        return asciiText(shown.message);
    case eAdmin:
        return adminText(shown.message);
    default:
        return {};
    }
}

} // namespace vexmor::Apps::Cimview
