#pragma once

#include "apps/cimshare/sharedBus.h"
#include "apps/cimshare/socketcandText.h"

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include <map>
#include <memory>

namespace vexmor::Apps::Cimshare
{

/// The buses, by every name under which a client may open them.
using CBusesByName = std::map<QByteArray, CSharedBus*>;

/// One client of the socketcand protocol. After it has opened a bus, it is in broadcast manager mode and receives the
/// identifiers that it subscribed to. In raw mode it receives every frame, in control mode only counts of frames and
/// bytes. It may send frames in the first two modes.
class CSocketcandClient : public QObject
{
    Q_OBJECT

public:
    /// Takes ownership of the connection; the object name is the peer's address and port. `buses` must outlive the
    /// client.
    CSocketcandClient(std::unique_ptr<QTcpSocket> socket, const CBusesByName& buses);

    CSharedBus* bus() const { return m_bus; }
    /// Delivers a message that the gateway or another client sent on this client's bus; `element` is its text.
    void deliver(const Cim::CCanMessage& message, const QByteArray& element);

Q_SIGNALS:
    void disconnected();
    /// The client reads too slowly, and one more frame was lost.
    void frameLost();

private:
    /// A subscription to one identifier, in broadcast manager mode.
    struct SSubscription {
        QByteArray pending; ///< The newest frame that arrived before it may be delivered.
        QTimer timer;       ///< Active until the next frame may be delivered.
    };

    /// A message that is sent cyclically.
    struct SCyclic {
        QTimer timer;
        bool isRefused = false; ///< The last attempt was refused, and the refusal was reported to the client.
    };

    void onReadyRead();
    void execute(const QByteArray& element);
    void open(const SCommand& command);
    void setMode(EMode mode);
    void enterMode(EMode mode);
    void deliverPending(SSubscription& subscription);
    void end();
    void subscribe(const SCommand& command);
    void addCyclic(const SCommand& command);
    void send(const SCommand& command);
    void sendCyclic(const Cim::CCanMessage& message);
    void writeStatistics();
    void writeError(const QString& text, EErrorClass errorClass = EErrorClass::eRefused);
    void answer(const QByteArray& element);
    void write(const QByteArray& element);
    void put(const QByteArray& bytes);

    const std::unique_ptr<QTcpSocket> m_socket;
    const CBusesByName& m_buses;
    CSharedBus* m_bus = nullptr;
    EMode m_mode = eNoBus;
    QByteArray m_stream; ///< Received beginning of an element that is not complete yet.
    /// Ends the connection of a client that opens no bus, or that does not read its last answer.
    QTimer m_limitTimer;
    QTimer m_quietTimer;  ///< Active during the pause in which frames are kept in `m_waiting`.
    QByteArray m_waiting; ///< Frames to be written when `m_quietTimer` ends.
    QTimer m_statisticsTimer;
    bool m_hasLost = false;                                 ///< Frames were lost since the last frame written.
    std::map<std::uint16_t, SSubscription> m_subscriptions; ///< Subscriptions by identifier.
    std::map<std::uint16_t, SCyclic> m_cyclic;              ///< Cyclic messages by identifier.
};

} // namespace vexmor::Apps::Cimshare
