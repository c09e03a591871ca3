#pragma once

#include "apps/cimview/eventModel.h"
#include "apps/cimview/managedInterface.h"
#include "apps/cimview/tableModel.h"
#include "apps/host/pluginFolder.h"

#include <memory>
#include <utility>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// The interfaces that the user works with, one per row: interfaces of the settings store, interfaces that a scan
/// found, and interfaces that the user added. The list owns them.
class CInterfaceList : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eName, eState, eBusload, eAddress, eBaudrate, eType, eFirmware, eStored, eColumnCount };

    /// `plugins` and `names` must outlive the list; `plugins` must not be empty.
    CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names, std::shared_ptr<CMailbox> mailbox);
    ~CInterfaceList() override;

    /// Adds the interfaces of the settings store; an event reports each that cannot be loaded.
    void loadStored();
    /// Adds an interface with the given name and settings, and stores it when `keep` is true.
    Failure add(const QString& name, const Settings& settings, bool keep);
    /// Adds the interfaces that a scan found, unless they are in the list already. A name that is in use gets a number.
    /// Adds at most 1000, since any device may answer a scan; an event reports how many were left out. Returns how many
    /// different interfaces were found, and how many of them were added.
    std::pair<int, int> addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found);
    /// Removes an interface, which must be closed, from the list and from the store.
    void remove(int row);

    CManagedInterface& at(int row) const { return *m_rows[static_cast<std::size_t>(row)]; }
    /// Returns the row of an interface, or -1 when no interface has this name.
    int rowOf(const QString& name) const;
    /// Returns the names of the open interfaces, in the order of the rows.
    QStringList openNames() const;
    /// Returns the reason why nothing can be sent on an interface, or nothing when it can send.
    Failure sendObstacle(const QString& name) const;
    /// Sends a message, or returns the reason why it was not sent.
    Failure send(const QString& name, const Cim::CCanMessage& message) const;
    /// Returns the event for an error of an interface.
    SEvent eventOf(const SErrorRecord& error) const;
    /// Updates the last error of each interface: a new error replaces the last one; a received message shows that the
    /// bus works, and ends the error.
    void noteErrors(const SDelivery& delivery);
    /// Returns the event for a message that was refused.
    SEvent eventOf(const SBusRecord& refused) const;
    /// Updates the state texts, which contain times.
    void refreshStates();

    QVariant data(const QModelIndex& index, int role) const override;
    /// Sorts the present rows; rows that are added later follow after them.
    void sort(int column, Qt::SortOrder order) override;

Q_SIGNALS:
    void eventRaised(const vexmor::Apps::Cimview::SEvent& event);
    /// Emitted when the state of an interface has changed, or a row was added or removed.
    void statesChanged();

private:
    std::size_t shownRows() const override { return m_rows.size(); }
    Result<std::unique_ptr<Cim::CCanInterface>> create(const QString& pluginName) const;
    void insert(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored);
    int rowOf(const CManagedInterface& wanted) const;
    static QString cellText(const CManagedInterface& shown, int column);

    const std::vector<SPlugin>& m_plugins;
    CSourceNames& m_names;
    const std::shared_ptr<CMailbox> m_mailbox;
    std::vector<std::unique_ptr<CManagedInterface>> m_rows;
};

} // namespace vexmor::Apps::Cimview
