#pragma once

#include "apps/host/hostedInterface.h"
#include "apps/host/target.h"

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include <memory>

namespace vexmor::Apps::Cimshare
{

/// The CAN bus behind a gateway, for many clients: what one sends, the gateway and all others get; what the gateway
/// receives, all get. Keeps the interface open: tries until the gateway is there, and again when it was lost.
///
/// Everything that is on the bus is told by `messageSent`; `sender` is the client, null for the gateway.
class CSharedBus : public QObject
{
    Q_OBJECT

public:
    /// Messages, and their data bytes.
    struct SCount {
        quint64 messages = 0;
        quint64 bytes = 0;
    };

    /// With `allowSend` clients may send.
    CSharedBus(CTarget target, std::unique_ptr<Cim::CCanInterface> canInterface, bool allowSend);

    /// Begins to open the interface.
    void start();
    /// Hands a message to the gateway. False when that does not take it: it will never be sent, and `refusal` says why.
    bool send(const Cim::CCanMessage& message, const QObject* sender);
    const QString& refusal() const { return m_refusal; }

    QString name() const { return m_target.name(); }
    /// The name where it stands among others in a text: without blanks, and what MQTT and socketcand set apart.
    QString plainName() const;
    bool allowsSending() const { return m_allowSend; }
    /// Whether the gateway has said who it is, ever.
    bool isIdentified() const { return !m_identity.isEmpty(); }
    /// The interface's text for one of its errors: the first line, which says what; the others say what to do.
    QString textOfError(int error);
    CHostedInterface& hosted() { return m_hosted; }
    bool isConnected() const { return m_isConnected; }
    const SCount& received() const { return m_received; }
    const SCount& sent() const { return m_sent; }

Q_SIGNALS:
    /// A message was on the bus.
    void messageSent(const vexmor::Cim::CCanMessage& message, const QObject* sender);
    /// The gateway is there, or gone, or could not be opened; then `text` says why.
    void connectionChanged(bool isConnected, const QString& text);
    /// The gateway has said who it is, or something else than before.
    void identified();

private:
    void probe();
    void open();
    void onNotOpened(const QString& why);
    void lookAtLink();

    const CTarget m_target;
    CHostedInterface m_hosted;
    QTimer m_linkTimer;  ///< nothing tells that a link was regained, or who the gateway is
    QTimer m_retryTimer; ///< until the interface is open
    QTcpSocket m_probe;
    bool m_isFailureTold = false;
    const bool m_allowSend;
    QString m_refusal;
    bool m_isConnected = false;
    QString m_identity;
    SCount m_received;
    SCount m_sent;
};

} // namespace vexmor::Apps::Cimshare
