#include "apps/cimview/identifierModel.h"

#include <algorithm>

namespace vexmor::Apps::Cimview
{
namespace
{
/// Weight of the newest period in the mean.
constexpr double NEWEST_WEIGHT = 0.125;
constexpr double MICROSECONDS_PER_MS = 1000;
} // namespace

CIdentifierModel::CIdentifierModel(const CSourceNames& names)
    : CTableModel({tr("ID"), tr("Interface"), tr("Dir"), tr("Count"), tr("Rate [1/s]"), tr("Period [ms]"),
                   tr("Min. period"), tr("Max. period"), tr("Data"), tr("ASCII"), tr("Last seen"),
                   tr("Administration")}),
      m_names(names)
{
}

void CIdentifierModel::append(const std::vector<SBusRecord>& records)
{
    for (const SBusRecord& record : records) {
        SRow& row = rowFor(record);
        if (isPeriod(row, record)) {
            const auto distance = static_cast<double>(record.microseconds - row.last.microseconds);
            const bool isFirst = row.periodMicroseconds <= 0;
            row.periodMicroseconds += (distance - row.periodMicroseconds) * (isFirst ? 1 : NEWEST_WEIGHT);
            row.leastMicroseconds = isFirst ? distance : std::min(row.leastMicroseconds, distance);
            row.greatestMicroseconds = isFirst ? distance : std::max(row.greatestMicroseconds, distance);
        }
        for (unsigned int i = 0; row.count > 0 && i < record.message.length(); ++i) {
            const bool isNew = i >= row.last.message.length();
            if (isNew || record.message.data()[i] != row.last.message.data()[i]) {
                row.changedAt[i] = record.microseconds;
            }
        }
        row.last = record;
        row.rate.add(record.microseconds);
        ++row.count;
    }
    if (!records.empty()) {
        m_newest = std::max(m_newest, records.back().microseconds);
        m_now = std::max(m_now, m_newest);
        rowsChanged();
    }
}

/// Returns true when the time from the last message of a row to the next message is a period: the interface was not
/// interrupted between them.
bool CIdentifierModel::isPeriod(const SRow& row, const SBusRecord& next) const
{
    const auto interruption = m_interruptions.find(next.source);
    return row.count > 0 && (interruption == m_interruptions.end() || interruption->second <= row.last.microseconds);
}

void CIdentifierModel::setNow(std::int64_t microseconds)
{
    constexpr std::int64_t SLOT = CMessageRate::SLOT_MICROSECONDS;
    const bool isNextSlot = microseconds / SLOT != m_now / SLOT;
    m_now = microseconds;
    // Some time after the newest message, all rates are 0 and no byte is marked, so nothing changes any more.
    if (isNextSlot && m_now - m_newest <= (CMessageRate::SLOTS + 2) * SLOT) {
        rowsChanged();
    }
}

void CIdentifierModel::clear()
{
    beginResetModel();
    m_rows.clear();
    m_now = 0;
    m_newest = 0;
    endResetModel();
}

CIdentifierModel::Key CIdentifierModel::keyOf(const SBusRecord& record)
{
    return {record.message.id().value(), record.source, record.sent};
}

CIdentifierModel::SRow& CIdentifierModel::rowFor(const SBusRecord& record)
{
    const Key key = keyOf(record);
    const auto isBefore = [](const SRow& row, const Key& other) { return keyOf(row.last) < other; };
    auto place = std::lower_bound(m_rows.begin(), m_rows.end(), key, isBefore);
    if (place == m_rows.end() || keyOf(place->last) != key) {
        const auto index = static_cast<int>(place - m_rows.begin());
        SRow row;
        row.last = record;
        beginInsertRows({}, index, index);
        place = m_rows.insert(place, row);
        endInsertRows();
    }
    return *place;
}

std::optional<double> CIdentifierModel::numberIn(const SRow& row, int column) const
{
    if (column == eCount) {
        return static_cast<double>(row.count);
    }
    if (column == eRate) {
        return row.rate.perSecond(m_now);
    }
    if (row.periodMicroseconds <= 0) {
        return std::nullopt;
    }
    const double microseconds = column == ePeriod  ? row.periodMicroseconds
                                : column == eLeast ? row.leastMicroseconds
                                                   : row.greatestMicroseconds;
    return microseconds / MICROSECONDS_PER_MS;
}

int CIdentifierModel::changedBytes(const SRow& row) const
{
    int bits = 0;
    for (std::size_t i = 0; i < row.changedAt.size(); ++i) {
        if (row.changedAt[i] > 0 && m_now - row.changedAt[i] < MARK_MICROSECONDS) {
            bits |= 1 << i;
        }
    }
    return bits;
}

void CIdentifierModel::rowsChanged()
{
    if (!m_rows.empty()) {
        Q_EMIT dataChanged(index(0, eCount), index(rowCount() - 1, eAdmin));
    }
}

QVariant CIdentifierModel::data(const QModelIndex& index, int role) const
{
    const SRow& row = m_rows[static_cast<std::size_t>(index.row())];
    if (role == CHANGED_BYTES_ROLE) {
        return changedBytes(row);
    }
    const bool isNumber = index.column() >= eCount && index.column() <= eGreatest;
    const std::optional<double> number = isNumber ? numberIn(row, index.column()) : std::nullopt;
    if (role == SORT_ROLE && isNumber) {
        return number.value_or(-1);
    }
    if (role == Qt::TextAlignmentRole && isNumber) {
        return static_cast<int>(Qt::AlignRight | Qt::AlignVCenter);
    }
    if (role == MARK_ROLE && CanLog::errorOf(row.last.message) != 0) {
        return static_cast<int>(EMark::eBad);
    }
    if (role != Qt::DisplayRole && role != SORT_ROLE) {
        return {};
    }
    if (isNumber) {
        return number ? QString::number(*number, 'f', index.column() == eCount ? 0 : 1) : QString();
    }
    switch (index.column()) {
    case eId:
        return m_names.idText(row.last.message.id().value());
    case eInterface:
        return m_names.name(row.last.source);
    case eDirection:
        return directionText(row.last.sent);
    case eData:
        return dataText(row.last.message);
    case eAscii:
        return asciiText(row.last.message);
    case eLastSeen:
        return timeText(row.last.microseconds).chopped(3);
    case eAdmin:
        return adminText(row.last.message);
    default:
        return {};
    }
}

CIdentifierFilter::CIdentifierFilter(CIdentifierModel& model, const CSourceNames& names)
    : m_model(model), m_names(names)
{
    setSourceModel(&model);
    setSortRole(CIdentifierModel::SORT_ROLE);
}

void CIdentifierFilter::setMatcher(const CMessageMatcher& matcher)
{
    m_matcher = matcher;
    invalidateFilter();
}

bool CIdentifierFilter::filterAcceptsRow(int row, const QModelIndex& /*parent*/) const
{
    return m_matcher.matches(m_model.record(row), m_names);
}

} // namespace vexmor::Apps::Cimview
