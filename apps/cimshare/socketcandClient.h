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

/// The buses, by each name by which a client may open them.
using CBusesByName = std::map<QByteArray, CSharedBus*>;

/// One client of the socketcand protocol. It chooses a bus and begins in broadcast manager mode, in which it receives
/// the identifiers that it subscribed; in raw mode it receives every frame, in control mode counts. It may send frames.
class CSocketcandClient : public QObject
{
    Q_OBJECT

public:
    /// Takes the connection over; its peer is the object name. The buses outlive the client.
    CSocketcandClient(std::unique_ptr<QTcpSocket> socket, const CBusesByName& buses);

    CSharedBus* bus() const { return m_bus; }
    /// Delivers a message of its bus that the gateway or another client sent; `element` is its text.
    void deliver(const Cim::CCanMessage& message, const QByteArray& element);

Q_SIGNALS:
    void disconnected();
    /// The client reads too slowly and missed one more frame.
    void frameLost();

private:
    /// Frames of one identifier in broadcast manager mode.
    struct SSubscription {
        QByteArray pending; ///< The newest frame that came too early.
        QTimer timer;       ///< Runs until the next frame may be delivered.
    };

    /// A message that is sent again and again.
    struct SCyclic {
        QTimer timer;
        bool isRefused = false; ///< The last time; the client knows.
    };

    void onReadyRead();
    void execute(const QByteArray& element);
    void open(const SCommand& command);
    void setMode(EMode mode);
    void forget(EMode mode);
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
    QByteArray m_stream; ///< From the client: the beginning of an element.
    /// Ends the connection of a client that chooses no bus, or that does not read its last answer.
    QTimer m_limitTimer;
    QTimer m_quietTimer;  ///< Frames wait while it runs.
    QByteArray m_waiting; ///< Frames that wait for `m_quietTimer`.
    QTimer m_statisticsTimer;
    bool m_hasLost = false;                                 ///< Frames were lost since the last frame written.
    std::map<std::uint16_t, SSubscription> m_subscriptions; ///< By identifier.
    std::map<std::uint16_t, SCyclic> m_cyclic;              ///< By identifier.
};

} // namespace vexmor::Apps::Cimshare
