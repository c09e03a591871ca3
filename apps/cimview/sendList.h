#pragma once

#include "apps/cimview/tableModel.h"
#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QString>

#include <vector>

class QSettings;

namespace vexmor::Apps::Cimview
{

/// Reads identifier and data as the user types them, in hexadecimal, data with or without blanks.
Result<Cim::CCanMessage> readMessage(const QString& id, const QString& data);

struct SSendItem {
    Cim::CCanMessage message;
    int milliseconds = 0; ///< from one message to the next, in cyclic sending
    QString comment;
    int key = 0;         ///< identifies the item; the list sets it
    QString sentOn = {}; ///< the interface on which it is being sent cyclically; empty: it is not
};

/// The messages that the user keeps at hand, to send once or cyclically. Edited in place: a text that is no message is
/// refused. Sends nothing itself.
class CSendList : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eCyclic, eSentOn, eId, eData, eInterval, eComment, eColumnCount };
    static constexpr int MAX_INTERVAL_MS = 3600000;
    static constexpr int DEFAULT_INTERVAL_MS = 100;

    CSendList();

    void add(const SSendItem& item);
    void remove(int row);
    const SSendItem& item(int row) const { return m_items[static_cast<std::size_t>(row)]; }
    /// The interface for the items whose cyclic sending starts from now on, and what prevents that, if anything does.
    void setTarget(const QString& interface, const Failure& obstacle);
    /// Ends the cyclic sending on all interfaces but these.
    void stopAllBut(const QStringList& interfaces);
    void stopAll() { stopAllBut({}); }

    /// Adds the items of the group that is open on `settings`.
    void load(QSettings& settings);
    /// Writes all items to that group.
    void save(QSettings& settings) const;

    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

Q_SIGNALS:
    /// From now on the message is to be sent every so many milliseconds; 0 ends that.
    void cyclicChanged(int key, const QString& interface, const vexmor::Cim::CCanMessage& message, int milliseconds);
    /// A typed text was refused, and why.
    void refused(const QString& text);

private:
    std::size_t shownRows() const override { return m_items.size(); }
    Failure edit(SSendItem& item, int column, const QString& text);
    void setSentOn(int row, const QString& interface);

    std::vector<SSendItem> m_items;
    QString m_target;
    Failure m_obstacle;
    int m_nextKey = 1;
};

} // namespace vexmor::Apps::Cimview
