#pragma once

#include <QAbstractTableModel>
#include <QStringList>

namespace vexmor::Apps::Cimview
{

/// The rating of the content of a cell; the view colours the background of the cell accordingly.
enum class EMark { eNone, eGood, eDoubtful, eBad };
/// Role in which a model returns an EMark.
constexpr int MARK_ROLE = Qt::UserRole + 10;

/// Base of the table models of this window: a flat table whose column titles never change.
class CTableModel : public QAbstractTableModel
{
public:
    int rowCount(const QModelIndex& parent = {}) const final
    {
        return parent.isValid() ? 0 : static_cast<int>(shownRows());
    }
    int columnCount(const QModelIndex& parent = {}) const final
    {
        return parent.isValid() ? 0 : static_cast<int>(m_titles.size());
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const final
    {
        return orientation == Qt::Horizontal && role == Qt::DisplayRole ? m_titles.value(section) : QVariant();
    }

protected:
    explicit CTableModel(QStringList titles) : m_titles(std::move(titles)) {}

private:
    virtual std::size_t shownRows() const = 0;

    const QStringList m_titles;
};

} // namespace vexmor::Apps::Cimview
