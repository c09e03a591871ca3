#pragma once

#include "apps/cimview/messageText.h"
#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// The last messages, oldest first. The messages that the matcher selects are the rows.
///
/// A full trace drops its oldest tenth at once, because the removal of rows is expensive for views. Rows are only added
/// at the end and only removed at the beginning; a new matcher resets the model.
class CTraceModel : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eTime, eInterface, eDirection, eId, eData, eAscii, eAdmin };
    static constexpr std::size_t CAPACITY = 500000;
    enum class ETime {
        eOfDay,
        eSinceStart,  ///< Time since the first message after the last `clear`.
        eSinceBefore, ///< Time since the previous row.
    };

    /// `names` must outlive the model.
    explicit CTraceModel(const CSourceNames& names, std::size_t capacity = CAPACITY);

    /// Adds messages. Of more messages than the capacity, it adds only the last ones.
    void append(const std::vector<SBusRecord>& records);
    void clear();
    void setMatcher(const CMessageMatcher& matcher);
    /// Sets the time that the first column shows.
    void setTime(ETime time);

    /// Returns the number of messages, including those that are hidden.
    std::size_t size() const { return m_records.size(); }
    /// Returns the message of a row.
    const SBusRecord& record(int row) const;
    /// Returns the messages of all rows.
    std::vector<SBusRecord> records() const;

    QVariant data(const QModelIndex& index, int role) const override;

private:
    using Serial = std::uint64_t; ///< Number of a message since the model was created.

    std::size_t shownRows() const override { return m_rows.size(); }
    void makeRoom(std::size_t count);
    bool matches(const SBusRecord& record) const;
    QString shownTime(int row) const;

    const CSourceNames& m_names;
    const std::size_t m_capacity;
    CMessageMatcher m_matcher;
    std::deque<SBusRecord> m_records;
    Serial m_first = 0;         ///< Serial of the oldest message in the trace.
    std::vector<Serial> m_rows; ///< The messages that are shown.
    ETime m_time = ETime::eOfDay;
    std::int64_t m_start = 0; ///< Time of the first message after the last `clear`, since the epoch.
};

} // namespace vexmor::Apps::Cimview
