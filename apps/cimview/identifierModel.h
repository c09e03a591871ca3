#pragma once

#include "apps/cimview/messageRate.h"
#include "apps/cimview/messageText.h"
#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"
#include "canlog/candumpLog.h"

#include <QSortFilterProxyModel>

#include <array>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// One row per identifier, interface and direction, sorted in this order. A row has the count, the rate, the periods
/// (mean, least and greatest) and the last data of its messages, and marks the bytes that changed within the last
/// second.
class CIdentifierModel : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn {
        eId,
        eInterface,
        eDirection,
        eCount,
        eRate,
        ePeriod,
        eLeast,
        eGreatest,
        eData,
        eAscii,
        eLastSeen,
        eAdmin
    };
    /// Role of the data column: an int whose bit N stands for a change of byte N.
    static constexpr int CHANGED_BYTES_ROLE = Qt::UserRole;
    /// Role by which rows are sorted; a number is sorted by its value, not by its text.
    static constexpr int SORT_ROLE = Qt::UserRole + 1;
    /// Time for which a changed byte stays marked.
    static constexpr std::int64_t MARK_MICROSECONDS = 1000000;

    /// `names` must outlive the model.
    explicit CIdentifierModel(const CSourceNames& names);

    void append(const std::vector<SBusRecord>& records);
    /// Sets the present time: marks of bytes that changed long ago end, and rates are calculated anew.
    void setNow(std::int64_t microseconds);
    /// Notes that an interface could receive nothing at this time, in microseconds since the epoch: the time between
    /// its messages before and after this moment does not count as a period.
    void interrupt(std::uint16_t source, std::int64_t microseconds) { m_interruptions[source] = microseconds; }
    void clear();

    /// Returns the last message of a row.
    const SBusRecord& record(int row) const { return m_rows[static_cast<std::size_t>(row)].last; }

    QVariant data(const QModelIndex& index, int role) const override;

private:
    struct SRow {
        SBusRecord last;
        std::uint64_t count = 0;
        CMessageRate rate;
        double periodMicroseconds = 0; ///< Mean in which new periods weigh most; 0 before the first period.
        double leastMicroseconds = 0;
        double greatestMicroseconds = 0;
        std::array<std::int64_t, CanLog::MAX_DATA_LENGTH> changedAt{};
    };
    using Key = std::tuple<std::uint16_t, std::uint16_t, bool>;

    std::size_t shownRows() const override { return m_rows.size(); }
    static Key keyOf(const SBusRecord& record);
    /// Returns the number that a column of numbers shows for a row, or nothing if the cell is empty.
    std::optional<double> numberIn(const SRow& row, int column) const;
    SRow& rowFor(const SBusRecord& record);
    bool isPeriod(const SRow& row, const SBusRecord& next) const;
    int changedBytes(const SRow& row) const;
    void rowsChanged();

    const CSourceNames& m_names;
    std::vector<SRow> m_rows; ///< Rows in the order of their keys.
    /// Time of the last interruption of each interface.
    std::unordered_map<std::uint16_t, std::int64_t> m_interruptions;
    std::int64_t m_now = 0;
    std::int64_t m_newest = 0; ///< Time of the newest message.
};

/// Shows those rows of a CIdentifierModel whose last message matches, in the order that the user chooses.
class CIdentifierFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    /// `model` and `names` must outlive the filter.
    CIdentifierFilter(CIdentifierModel& model, const CSourceNames& names);
    void setMatcher(const CMessageMatcher& matcher);

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    const CIdentifierModel& m_model;
    const CSourceNames& m_names;
    CMessageMatcher m_matcher;
};

} // namespace vexmor::Apps::Cimview
