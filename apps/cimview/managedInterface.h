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
/// It keeps a closed interface, which has the settings: that one is configured, stored and asked for texts. To open it,
/// a clone is used, in a thread of its own. So the window never waits for a gateway, and what is configured never
/// changes under an open link.
class CManagedInterface : public QObject
{
    Q_OBJECT

public:
    /// `names` must outlive the object.
    CManagedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored, CSourceNames& names,
                      std::shared_ptr<CMailbox> mailbox);

    QString name() const { return m_canInterface->commonInfo().uniqueName(); }
    const Cim::CCommonInfo& info() const { return m_canInterface->commonInfo(); }
    /// What is known of its connection.
    const SInterfaceStatus& status() const;
    /// The same for the user: the connection, or why it was not opened; and the last error of the bus, until a message
    /// shows that the bus works.
    QString stateText() const;
    EMark stateMark() const;
    /// Why the last attempt to open it failed, if it did.
    const Failure& openFailure() const { return m_openFailure; }
    bool hasError() const { return !m_error.isEmpty(); }
    /// The text of an error of the bus; empty: a message was received.
    void setError(const QString& text);
    bool isClosed() const { return status().connection == EConnection::eClosed; }
    bool isStored() const { return m_isStored; }
    /// The interface that has the settings, always closed; only to be changed while this one is closed.
    Cim::CCanInterface& settings() const { return *m_canInterface; }
    /// Neither closed nor connecting.
    bool isOpen() const;
    /// True while the gateway is known not to be reachable: without a link, or silent over UDP, where a gateway that
    /// runs answers.
    bool isUnreachable() const;
    /// Why nothing can be sent on it: it is not open, or no gateway has answered since it was opened. Otherwise
    /// nothing.
    Failure sendObstacle() const;
    /// Hands over a message to be sent, unless there is an obstacle; it may still be refused, which is an event.
    Failure send(const Cim::CCanMessage& message);
    /// Sends a message every so many milliseconds, until the interface is closed; 0 ends that.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);

    void open();
    void close();
    /// Sets the bit rate, in kbit/s or GATEWAYS_BIT_RATE. False when it is not closed or refuses the rate.
    bool setBitRate(const QString& rate);
    /// After a change through `settings`: shows it, and stores it when the interface is stored.
    void settingsChanged();
    /// Stores the interface under its name, and removes it from the store. An event reports what prevents it.
    void store();
    bool removeFromStore();

Q_SIGNALS:
    /// Something that is shown of it.
    void changed();
    /// Its state, too.
    void stateChanged();
    /// Something for the event log.
    void eventRaised(const vexmor::Apps::Cimview::SEvent& event);

private:
    void onStatusChanged();
    /// `wasLost`: the link was lost since the last time, though it may stand again.
    void noteConnection(bool wasLost);
    void report(const SProblem& problem);

    std::unique_ptr<Cim::CCanInterface> m_canInterface;
    std::unique_ptr<CInterfaceInUse> m_inUse; ///< null while closed
    CSourceNames& m_names;
    const std::shared_ptr<CMailbox> m_mailbox;
    bool m_isStored;
    Failure m_openFailure;
    QString m_error;        ///< the last of the bus
    std::set<int> m_cyclic; ///< keys of the messages that are sent cyclically
    /// The connection that was reported last, and the losses of the link by then.
    std::pair<EConnection, unsigned> m_shown{EConnection::eClosed, 0};
    bool m_wasOpen = false;        ///< since it was closed last
    bool m_wasUnreachable = false; ///< when the connection was reported last
};

} // namespace vexmor::Apps::Cimview
