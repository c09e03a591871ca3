#pragma once

#include "apps/cimview/eventModel.h"
#include "apps/cimview/managedInterface.h"
#include "apps/host/pluginFolder.h"

#include <QAbstractTableModel>

#include <memory>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// The interfaces that the user works with, one a row: those of the settings store, those that a scan found, and any
/// other that was added. Owns them.
class CInterfaceList : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum EColumn { eName, eState, eBusload, eAddress, eBaudrate, eType, eFirmware, eStored, eColumnCount };

    /// All must outlive the list; `plugins` must not be empty.
    CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names, std::shared_ptr<CMailbox> mailbox);
    ~CInterfaceList() override;

    /// Adds what is in the settings store; what cannot be loaded is told of by an event.
    void loadStored();
    /// Adds an interface with these settings, and stores it when `keep` is true.
    Failure add(const QString& name, const Settings& settings, bool keep);
    /// Adds what a scan found, but for interfaces that are in the list already; 1000 at most, since strangers answer,
    /// and tells of the rest by an event.
    void addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found);
    /// Removes an interface, from the store as well. Only a closed one.
    void remove(int row);

    CManagedInterface& at(int row) const { return *m_rows[static_cast<std::size_t>(row)]; }
    int rowOf(const QString& name) const; ///< -1: there is none
    /// To send with on an open interface; null for any other.
    CInterfaceInUse* sender(const QString& name) const;
    /// Interfaces that are not closed.
    int activeCount() const;
    /// What the event log says of an error.
    SEvent eventOf(const SErrorRecord& error) const;
    /// The same of a message that was not sent.
    SEvent eventOf(const SBusRecord& refused) const;
    /// Shows the states anew, which have times in them.
    void refreshStates();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    /// Puts the rows there are into this order; those that come later stand behind them.
    void sort(int column, Qt::SortOrder order) override;

Q_SIGNALS:
    void eventHappened(const vexmor::Apps::Cimview::SEvent& event);
    /// The state of an interface changed, or a row came or went.
    void statesChanged();

private:
    Result<std::unique_ptr<Cim::CCanInterface>> create(const QString& pluginName) const;
    void insert(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored);
    void showRow(const CManagedInterface& shown);
    void tell(const QString& name, EEvent kind, int code, const QString& text);

    const std::vector<SPlugin>& m_plugins;
    CSourceNames& m_names;
    const std::shared_ptr<CMailbox> m_mailbox;
    std::vector<std::unique_ptr<CManagedInterface>> m_rows;
};

} // namespace vexmor::Apps::Cimview
