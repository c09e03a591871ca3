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

/// The interfaces that the user works with, one per row: those of the settings store, those that a scan found, and
/// those that the user added. Owns them.
class CInterfaceList : public CTableModel
{
    Q_OBJECT

public:
    enum EColumn { eName, eState, eBusload, eAddress, eBaudrate, eType, eFirmware, eStored, eColumnCount };

    /// All must outlive the list; `plugins` must not be empty.
    CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names, std::shared_ptr<CMailbox> mailbox);
    ~CInterfaceList() override;

    /// Adds the interfaces of the settings store; an event reports each that cannot be loaded.
    void loadStored();
    /// Adds an interface with these settings, and stores it when `keep` is true.
    Failure add(const QString& name, const Settings& settings, bool keep);
    /// Adds the interfaces that a scan found, without those that are in the list already. A name that is in use gets a
    /// number. Adds 1000 at most, since anything may answer a scan; an event reports how many were left out.
    /// Returns how many were found, each counted once, and how many were added.
    std::pair<int, int> addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found);
    /// Removes an interface, from the store as well. Only a closed one.
    void remove(int row);

    CManagedInterface& at(int row) const { return *m_rows[static_cast<std::size_t>(row)]; }
    int rowOf(const QString& name) const; ///< -1: there is none
    /// Names of the open interfaces, in the order of the rows.
    QStringList openNames() const;
    /// Why nothing can be sent on an interface; otherwise nothing.
    Failure sendObstacle(const QString& name) const;
    /// Sends a message, unless there is an obstacle.
    Failure send(const QString& name, const Cim::CCanMessage& message) const;
    /// The row of the event log for an error of an interface.
    SEvent eventOf(const SErrorRecord& error) const;
    /// Takes note of the errors of the interfaces, and of messages that show that a bus works.
    void noteErrors(const SDelivery& delivery);
    /// The same of a message that was not sent.
    SEvent eventOf(const SBusRecord& refused) const;
    /// Shows the states anew, which have times in them.
    void refreshStates();

    QVariant data(const QModelIndex& index, int role) const override;
    /// Sorts the present rows; rows that are added later follow behind them.
    void sort(int column, Qt::SortOrder order) override;

Q_SIGNALS:
    void eventRaised(const vexmor::Apps::Cimview::SEvent& event);
    /// The state of an interface changed, or a row was added or removed.
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
