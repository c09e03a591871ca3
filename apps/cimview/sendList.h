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

/// Reads a message from hexadecimal texts; the data may contain blanks between the bytes.
Result<Cim::CCanMessage> readMessage(const QString& id, const QString& data);

/// A message of the list.
struct SSendItem {
    Cim::CCanMessage message;
    int milliseconds = 0;   ///< Interval of cyclic sending.
    QString name;           ///< The user's name for the message.
    QString interface;      ///< Name of the interface to send on; empty: the target of the list.
    int key = 0;            ///< Identifies the item; assigned by the list.
    QString sentOn = {};    ///< Interface of the present cyclic sending; empty: not sent cyclically.
    std::uint64_t sent = 0; ///< Number of times that the message was sent.
};

/// The messages that the user keeps ready for sending, once or cyclically. They are edited in the table; a text that is
/// not a valid message is refused. The list does not send by itself, it emits `cyclicChanged`.
class CSendList : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eCyclic, eName, eId, eData, eInterval, eSent, eInterface, eColumnCount };
    static constexpr int MAX_INTERVAL_MS = 3600000;
    static constexpr int DEFAULT_INTERVAL_MS = 1000; ///< Interval of a new item.

    static constexpr int MAX_LOADED = 1000; ///< Maximum number of items that `load` adds.

    /// Returns why nothing can be sent on an interface, or nothing when messages can be sent.
    using Obstacle = std::function<Failure(const QString& interface)>;

    explicit CSendList(Obstacle obstacle = {});

    void add(const SSendItem& item);
    void remove(int row);
    const SSendItem& item(int row) const { return m_items[static_cast<std::size_t>(row)]; }
    /// Sets the interface for items without an interface of their own. Cyclic sending that runs already stays on its
    /// interface.
    void setTarget(const QString& interface) { m_target = interface; }
    /// Returns the interface on which an item is sent.
    QString interfaceOf(const SSendItem& item) const { return item.interface.isEmpty() ? m_target : item.interface; }
    /// Counts how often the items were sent, also when the same message was sent from elsewhere in the window.
    void countSent(const std::vector<SBusRecord>& records, const CSourceNames& names);
    /// Stops cyclic sending on all interfaces except `interfaces`.
    void stopAllBut(const QStringList& interfaces);
    void stopAll() { stopAllBut({}); }

    /// Adds the items of the current group of `settings`, at most MAX_LOADED.
    void load(QSettings& settings);
    /// Writes all items to the current group of `settings`.
    void save(QSettings& settings) const;

    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

Q_SIGNALS:
    /// Requests that the message is sent every `milliseconds` from now on; 0 stops the sending.
    void cyclicChanged(int key, const QString& interface, const vexmor::Cim::CCanMessage& message, int milliseconds);
    /// Reports why a typed text was refused.
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
