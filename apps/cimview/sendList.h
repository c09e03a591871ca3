#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QAbstractTableModel>
#include <QString>

#include <vector>

class QSettings;

namespace vexmor::Apps::Cimview
{

/// Reads identifier and data as the user types them, in hexadecimal, data with or without blanks.
Result<Cim::CCanMessage> parseMessage(const QString& id, const QString& data);

struct SSendItem {
    Cim::CCanMessage message;
    int milliseconds = 0; ///< from one message to the next, when it is sent again and again
    QString comment;
    int key = 0;          ///< tells it from the others; the list gives it
    bool running = false; ///< is being sent again and again
};

/// The messages that the user keeps at hand, to send one by one or again and again. Edited in place: what makes no
/// message is refused. Sends nothing itself.
class CSendList : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum EColumn { eCyclic, eId, eData, eInterval, eComment, eColumnCount };
    static constexpr int MAX_INTERVAL_MS = 3600000;
    static constexpr int DEFAULT_INTERVAL_MS = 100;

    using QAbstractTableModel::QAbstractTableModel;

    void add(const SSendItem& item);
    void remove(int row);
    const SSendItem& item(int row) const { return m_items[static_cast<std::size_t>(row)]; }
    /// Ends all that is sent again and again.
    void stopAll();

    /// The list as it stands in the group that is open on `settings`.
    void load(QSettings& settings);
    void save(QSettings& settings) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    /// From now on the message is to be sent every so many milliseconds; 0: no longer.
    void cyclicChanged(int key, const vexmor::Cim::CCanMessage& message, int milliseconds);
    /// What was typed makes no sense.
    void refused(const QString& text);

private:
    bool edit(SSendItem& item, int column, const QString& text);
    void setRunning(int row, bool running);

    std::vector<SSendItem> m_items;
    int m_nextKey = 1;
};

} // namespace vexmor::Apps::Cimview
