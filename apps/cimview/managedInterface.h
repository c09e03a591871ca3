#pragma once

#include "apps/cimview/eventModel.h"
#include "apps/cimview/session.h"
#include "apps/cimview/sourceNames.h"
#include "apps/host/interfaceSettings.h"

#include <QObject>

#include <memory>
#include <optional>

namespace vexmor::Apps::Cimview
{

/// An interface that the user works with, open or closed, in the window's thread.
///
/// It keeps a closed interface, which has the settings: that one is configured, stored and asked for texts. To open it,
/// a clone is handed to a session and its thread. So the window never waits for a gateway, and what is configured never
/// changes under an open link.
class CManagedInterface : public QObject
{
    Q_OBJECT

public:
    /// `names` and `mailbox` must outlive the object.
    CManagedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored, CSourceNames& names,
                      CMailbox& mailbox);

    QString name() const { return m_canInterface->commonInfo().uniqueName(); }
    const Cim::CCommonInfo& info() const { return m_canInterface->commonInfo(); }
    EInterfaceState state() const { return m_session ? m_session->state() : EInterfaceState::eClosed; }
    /// True while messages can be sent (they may be refused).
    bool isOpen() const;
    bool isStored() const { return m_isStored; }
    /// Percent; nothing unless it is known.
    std::optional<int> busload() const;
    /// The interface that has the settings, always closed; only to be changed while the state is closed.
    Cim::CCanInterface& settings() const { return *m_canInterface; }
    /// Null unless open.
    CSession* session() const { return isOpen() ? m_session.get() : nullptr; }

    void open();
    void close();
    /// Sets the bit rate, in kbit/s or GATEWAYS_BIT_RATE. False when it is not closed or refuses the rate.
    bool setBitRate(const QString& rate);
    /// After a change through `settings`: shows it, and stores it when the interface is stored.
    void settingsChanged();
    /// Stores the interface under its name, and removes it from the store. What prevents it is told.
    void store();
    bool removeFromStore();

Q_SIGNALS:
    /// Something that is shown of it.
    void changed();
    /// Its state, too.
    void stateChanged();
    /// Something for the event log; `code` is a result code or 0.
    void told(vexmor::Apps::Cimview::EEvent kind, int code, const QString& text);
    void busloadRead(std::optional<int> percent);

private:
    void onSessionChanged();
    void onFinished();
    void tell(const SProblem& problem);

    std::unique_ptr<Cim::CCanInterface> m_canInterface;
    std::unique_ptr<CSession> m_session; ///< null while closed
    CSourceNames& m_names;
    CMailbox& m_mailbox;
    bool m_isStored;
    EInterfaceState m_shown = EInterfaceState::eClosed; ///< the state that was told last
    bool m_wasOpen = false;                             ///< since it was closed last
};

} // namespace vexmor::Apps::Cimview
