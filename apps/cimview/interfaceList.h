#pragma once

#include "apps/cimview/eventModel.h"
#include "apps/cimview/session.h"
#include "apps/cimview/sourceNames.h"
#include "apps/common/interfaceStore.h"
#include "apps/common/pluginFolder.h"

#include <QAbstractTableModel>

#include <memory>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// Where an interface stands in its life.
enum class EInterfaceState {
    eClosed,
    eOpening,
    eConnected, ///< open, and the gateway is there
    eWaiting,   ///< open, and the interface tries to reach the gateway
    eClosing
};

/// The interfaces that the user works with, one a row: those of the settings store, those that a scan found, and any
/// other that was added. Owns them, and their sessions while they are open.
///
/// For each there is a closed interface in the window's thread, which has the settings: it is configured, stored and
/// asked for texts. To open it, a clone is handed to a session and its thread. So the window never waits for a gateway,
/// and what is configured never changes under an open link.
class CInterfaceList : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum EColumn { eName, eState, eBusload, eAddress, eBaudrate, eType, eFirmware, eStored, eColumnCount };

    /// All must outlive the list; `plugins` must not be empty.
    CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names, CMailbox& mailbox);
    ~CInterfaceList() override;

    /// Adds what is in the settings store; what cannot be loaded is told of by an event.
    void loadStored();
    /// Adds an interface with these settings, and stores it when `keep` is true. Empty, or a text for the user when it
    /// is refused.
    QString add(const QString& name, const Settings& settings, bool keep);
    /// Adds what a scan found, but for interfaces that are in the list already; 1000 at most, since strangers answer,
    /// and tells of the rest by an event.
    void addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found);
    /// Stores an interface under its name.
    void store(int row);
    /// Removes an interface, from the store as well. Only a closed one.
    void remove(int row);

    void open(int row);
    void close(int row);
    /// False when the interface is not closed or refuses the rate.
    bool setBaudrate(int row, int kbitPerSecond);
    /// The interface that has the settings, always closed; only to be changed while the state is closed.
    Cim::CCanInterface& settingsOf(int row) const { return *entry(row).canInterface; }
    /// After a change through `settingsOf`: shows it, and stores it when the interface is stored.
    void settingsChanged(int row);

    QString name(int row) const;
    int rowOf(const QString& name) const; ///< -1: there is none
    EInterfaceState state(int row) const { return entry(row).state; }
    bool isStored(int row) const { return entry(row).isStored; }
    /// True while messages can be sent (they may be refused).
    bool isOpen(int row) const;
    /// The session of an open interface; null otherwise.
    CSession* session(const QString& name) const;
    /// Interfaces that are not closed.
    int activeCount() const;
    /// What the event log says of an error.
    SEvent eventOf(const SErrorRecord& error) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    void eventHappened(const vexmor::Apps::Cimview::SEvent& event);
    /// An open interface told its bus load.
    void busloadRead(const QString& name, int percent);
    /// The state of an interface changed, or a row came or went.
    void statesChanged();

private:
    struct SEntry {
        std::unique_ptr<Cim::CCanInterface> canInterface;
        std::unique_ptr<CSession> session; ///< null while closed
        EInterfaceState state = EInterfaceState::eClosed;
        int busload = 0;
        bool isStored = false;
    };

    SEntry& entry(int row) const { return *m_entries[static_cast<std::size_t>(row)]; }
    std::unique_ptr<Cim::CCanInterface> create(const QString& pluginName) const;
    void insert(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored);
    void onOpened(SEntry& entry, int code);
    void onStatus(SEntry& entry, const SInterfaceStatus& status);
    void onFinished(SEntry& entry);
    void setState(SEntry& entry, EInterfaceState state);
    void showRow(const SEntry& entry);
    void report(const SEntry& entry, EEvent kind, int number, const QString& text);
    QString stateText(const SEntry& entry) const;

    const std::vector<SPlugin>& m_plugins;
    CSourceNames& m_names;
    CMailbox& m_mailbox;
    std::vector<std::unique_ptr<SEntry>> m_entries;
};

} // namespace vexmor::Apps::Cimview
