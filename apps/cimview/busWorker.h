#pragma once

#include "apps/cimview/mailbox.h"
#include "apps/host/hostedInterface.h"
#include "cim/resultCodes.h"

#include <QMetaType>
#include <QObject>
#include <QTimer>

#include <map>
#include <memory>
#include <optional>

namespace vexmor::Apps::Cimview
{

/// What an open interface tells of itself from time to time.
struct SInterfaceStatus {
    Cim::CCommonInfo info;
    bool hasAnswered = false;   ///< the gateway has sent something
    std::optional<int> busload; ///< percent, where it is known
};

/// Owns an interface while it is in use, in a thread that has no other: opening blocks for up to a second, and a
/// message is taken from the interface in the moment it arrives, whatever the window is doing.
///
/// Made where the interface is, then moved to its thread together with it; everything below runs in that thread.
class CBusWorker : public QObject
{
    Q_OBJECT

public:
    /// Takes a closed interface over. `mailbox` must outlive the worker.
    CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::uint16_t source, CMailbox& mailbox);
    /// Closes the interface.
    ~CBusWorker() override;

    /// Ends with `opened`, before the first status.
    void open();
    void send(const Cim::CCanMessage& message);
    /// Sends a message now and then every `milliseconds`, until they are 0 for the same `key`.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    /// Brings the gateway back to a known state.
    void reset();

Q_SIGNALS:
    void opened(int code);
    void statusTaken(const vexmor::Apps::Cimview::SInterfaceStatus& status);
    /// An operation gave another code than 0.
    void refused(int code);

private:
    void post(const Cim::CCanMessage& message, bool sent);
    void takeStatus();
    void noteCode(int code) { code == Cim::RC_OK ? void() : Q_EMIT refused(code); }

    std::unique_ptr<CHostedInterface> m_hosted; ///< child, so that both move to the thread together
    const std::uint16_t m_source;
    CMailbox& m_mailbox;
    QTimer m_statusTimer;
    std::map<int, std::unique_ptr<QTimer>> m_cyclic;
};

} // namespace vexmor::Apps::Cimview

Q_DECLARE_METATYPE(vexmor::Apps::Cimview::SInterfaceStatus)
