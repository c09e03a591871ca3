#pragma once

#include "apps/cimview/eventModel.h"
#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"
#include "apps/host/interfaceInUse.h"
#include "apps/host/interfaceSettings.h"

#include <QObject>

#include <memory>
#include <set>
#include <utility>

namespace vexmor::Apps::Cimview
{

/// An interface that the user works with, open or closed, in the window's thread.
///
/// The object keeps a closed interface with the settings, which is configured, stored and used for texts. A clone of it
/// is opened, in a thread of its own. The window therefore never waits for a gateway, and settings never change under
/// an open link.
class CManagedInterface : public QObject
{
    Q_OBJECT

public:
    /// `names` must outlive the object.
    CManagedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored, CSourceNames& names,
                      std::shared_ptr<CMailbox> mailbox);

    QString name() const { return m_canInterface->commonInfo().uniqueName(); }
    const Cim::CCommonInfo& info() const { return m_canInterface->commonInfo(); }
    /// Returns what is known of the connection.
    const SInterfaceStatus& status() const;
    /// Returns the state as a text for the user: the connection, or why the interface was not opened, and the last
    /// error of the bus until a message shows that the bus works.
    QString stateText() const;
    EMark stateMark() const;
    /// Returns why the last attempt to open the interface failed, or nothing when it succeeded.
    const Failure& openFailure() const { return m_openFailure; }
    bool hasError() const { return !m_error.isEmpty(); }
    /// Sets the text of the last error of the bus. An empty text ends the error.
    void setError(const QString& text);
    bool isClosed() const { return status().connection == EConnection::eClosed; }
    bool isStored() const { return m_isStored; }
    /// Returns the closed interface with the settings. It may only be changed while this interface is closed.
    Cim::CCanInterface& settings() const { return *m_canInterface; }
    /// Returns true when the interface is neither closed nor connecting.
    bool isOpen() const;
    /// Returns true while the gateway is known to be unreachable: the link is down (also of a closed interface), or the
    /// gateway is silent over UDP, where a running gateway always answers.
    bool isUnreachable() const;
    /// Returns why nothing can be sent: the interface is not open, or no gateway has answered since it was opened.
    /// Returns nothing when messages can be sent.
    Failure sendObstacle() const;
    /// Hands over a message to be sent, or returns why it cannot be sent. An event reports a message that is refused
    /// later.
    Failure send(const Cim::CCanMessage& message);
    /// Sends a message at this interval until the interface is closed; 0 stops it. `key` identifies the message.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);

    void open();
    void close();
    /// Sets the bit rate, in kbit/s or GATEWAYS_BIT_RATE. Returns false when the interface is not closed or refuses the
    /// rate.
    bool setBitRate(const QString& rate);
    /// Shows a change that was made through `settings`, and stores it when the interface is stored.
    void settingsChanged();
    /// Stores the interface under its name. If that fails, an event reports the reason.
    void store();
    /// Removes the interface from the store. Returns false, with an event, when it cannot be removed.
    bool removeFromStore();

Q_SIGNALS:
    /// Emitted when something that is shown of the interface has changed.
    void changed();
    /// Emitted after `changed` when the connection has changed as well.
    void stateChanged();
    /// Reports an event for the event log.
    void eventRaised(const vexmor::Apps::Cimview::SEvent& event);

private:
    void onStatusChanged();
    /// Reports a change of the connection as an event. `wasLost` is true when the link was lost since the last call,
    /// also when it was restored since.
    void noteConnection(bool wasLost);
    void report(const SProblem& problem);

    std::unique_ptr<Cim::CCanInterface> m_canInterface;
    std::unique_ptr<CInterfaceInUse> m_inUse; ///< The opened clone; null while the interface is closed.
    CSourceNames& m_names;
    const std::shared_ptr<CMailbox> m_mailbox;
    bool m_isStored;
    Failure m_openFailure;
    QString m_error;        ///< Text of the last error of the bus.
    std::set<int> m_cyclic; ///< Keys of the messages that are sent cyclically.
    /// The connection that was reported last, and the number of lost links at that time.
    std::pair<EConnection, unsigned> m_shown{EConnection::eClosed, 0};
    bool m_wasOpen = false;        ///< `isOpen` at the last report.
    bool m_wasUnreachable = false; ///< `isUnreachable` at the last report.
};

} // namespace vexmor::Apps::Cimview
