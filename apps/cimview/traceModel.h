#pragma once

#include "apps/cimview/messageText.h"
#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// The last messages, oldest first, those that the matcher lets through as rows.
///
/// Bounded: a full trace drops its oldest tenth at once, so that views pay for removed rows rarely. Rows are only added
/// at the end and only removed at the beginning; another matcher resets the model.
class CTraceModel : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eTime, eInterface, eDirection, eId, eData, eAscii, eAdmin };
    static constexpr std::size_t CAPACITY = 500000;
    enum class ETime {
        eOfDay,
        eSinceStart,  ///< since the first message after the last `clear`
        eSinceBefore, ///< since the row before
    };

    /// `names` must outlive the model.
    explicit CTraceModel(const CSourceNames& names, std::size_t capacity = CAPACITY);

    /// Adds messages; of more than fit, the last.
    void append(const std::vector<SBusRecord>& records);
    void clear();
    void setMatcher(const CMessageMatcher& matcher);
    /// Which time the first column shows.
    void setTime(ETime time);

    /// Messages kept, shown or not.
    std::size_t size() const { return m_records.size(); }
    /// The message of a row.
    const SBusRecord& record(int row) const;
    /// The messages of all rows.
    std::vector<SBusRecord> records() const;

    QVariant data(const QModelIndex& index, int role) const override;

private:
    using Serial = std::uint64_t; ///< number of a message since the model was made

    std::size_t shownRows() const override { return m_rows.size(); }
    void makeRoom(std::size_t count);
    bool matches(const SBusRecord& record) const;
    QString shownTime(int row) const;

    const CSourceNames& m_names;
    const std::size_t m_capacity;
    CMessageMatcher m_matcher;
    std::deque<SBusRecord> m_records;
    Serial m_first = 0;         ///< serial of the oldest message kept
    std::vector<Serial> m_rows; ///< those that are shown
    ETime m_time = ETime::eOfDay;
    std::int64_t m_start = 0; ///< microseconds of the first message
};

} // namespace vexmor::Apps::Cimview
