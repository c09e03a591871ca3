#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"
#include "apps/host/mailbox.h"
#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QString>

#include <functional>
#include <vector>

class QSettings;

namespace vexmor::Apps::Cimview
{

/// Reads identifier and data as the user types them, in hexadecimal, data with or without blanks.
Result<Cim::CCanMessage> readMessage(const QString& id, const QString& data);

struct SSendItem {
    Cim::CCanMessage message;
    int milliseconds = 0;   ///< from one message to the next, in cyclic sending
    QString name;           ///< what it means to the user
    QString interface;      ///< on which it is sent; empty: the one that is chosen for all
    int key = 0;            ///< identifies the item; the list sets it
    QString sentOn = {};    ///< the interface on which it is being sent cyclically; empty: it is not
    std::uint64_t sent = 0; ///< how often it was sent
};

/// The messages that the user keeps at hand, to send once or cyclically. Edited in place: a text that is no message is
/// refused. Sends nothing itself.
class CSendList : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eCyclic, eName, eId, eData, eInterval, eSent, eInterface, eColumnCount };
    static constexpr int MAX_INTERVAL_MS = 3600000;
    static constexpr int DEFAULT_INTERVAL_MS = 1000; ///< until the user edits it

    static constexpr int MAX_LOADED = 1000;

    /// What prevents the sending on an interface, if anything does.
    using Obstacle = std::function<Failure(const QString& interface)>;

    explicit CSendList(Obstacle obstacle = {});

    void add(const SSendItem& item);
    void remove(int row);
    const SSendItem& item(int row) const { return m_items[static_cast<std::size_t>(row)]; }
    /// The interface for the items that have none of their own, when their sending starts from now on.
    void setTarget(const QString& interface) { m_target = interface; }
    /// The interface on which an item is sent.
    QString interfaceOf(const SSendItem& item) const { return item.interface.isEmpty() ? m_target : item.interface; }
    /// Counts how often the items were sent, also by other means than this list.
    void countSent(const std::vector<SBusRecord>& records, const CSourceNames& names);
    /// Ends the cyclic sending on all interfaces but these.
    void stopAllBut(const QStringList& interfaces);
    void stopAll() { stopAllBut({}); }

    /// Adds the items of the group that is open on `settings`, MAX_LOADED at most.
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
    const Obstacle m_obstacle;
    QString m_target;
    int m_nextKey = 1;
};

} // namespace vexmor::Apps::Cimview
