#pragma once

#include "apps/cimshare/sharedBus.h"
#include "apps/cimshare/socketcandText.h"

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include <initializer_list>
#include <map>
#include <memory>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// One client of the socketcand protocol: chooses a bus, then gets every frame (raw mode), those that it subscribed
/// (broadcast manager mode, in which it begins) or counts (control mode), and sends.
class CSocketcandClient : public QObject
{
    Q_OBJECT

public:
    /// Takes the connection over. The buses outlive the client.
    CSocketcandClient(QTcpSocket* socket, const std::vector<CSharedBus*>& buses);

    const CSharedBus* bus() const { return m_bus; }
    /// A message of its bus, which somebody else sent; `element` is what stands for it.
    void deliver(const Cim::CCanMessage& message, const QByteArray& element);
    /// Tells what went wrong at its bus.
    void tellError(const QString& text);

Q_SIGNALS:
    void disconnected();
    /// It reads too slowly, and missed one more frame.
    void frameLost();

private:
    enum class EMode { eNoBus, eBroadcastManager, eRaw, eControl };
    /// Frames of one identifier in broadcast manager mode.
    struct SSubscription {
        std::int64_t interval = 0; ///< Shortest time between two frames, in microseconds.
        QByteArray pending;        ///< The newest frame that came too early.
        QTimer timer;              ///< Runs until the next frame may be delivered.
    };

    /// A message that is sent again and again.
    struct SCyclic {
        Cim::CCanMessage message;
        QTimer timer;
        bool isRefused = false; ///< The last time; the client knows.
    };

    void onReadyRead();
    bool execute(const QByteArray& element);
    bool isIn(std::initializer_list<EMode> modes);
    bool open(const QByteArray& name);
    void setMode(EMode mode);
    void forget(EMode mode);
    void end();
    void manage(const SCommand& command);
    void subscribe(const SCommand& command);
    void deliverSubscribed(SSubscription& subscription, const QByteArray& element);
    void addCyclic(const SCommand& command);
    void send(const Cim::CCanMessage& message, SCyclic* cyclic = nullptr);
    void tellStatistics();
    void answer(const QByteArray& element);
    void write(const QByteArray& element);

    const std::unique_ptr<QTcpSocket> m_socket;
    const std::vector<CSharedBus*>& m_buses;
    CSharedBus* m_bus = nullptr;
    EMode m_mode = EMode::eNoBus;
    CElementReader m_reader;
    QTimer m_limitTimer; ///< who says nothing, or reads nothing at the end, does not stay
    QTimer m_quietTimer; ///< frames wait while it runs
    QByteArray m_waiting;
    QTimer m_statisticsTimer;
    bool m_hasLost = false;
    std::map<std::uint16_t, std::unique_ptr<SSubscription>> m_subscriptions; ///< by identifier
    std::map<std::uint16_t, std::unique_ptr<SCyclic>> m_cyclic;
};

} // namespace vexmor::Apps::Cimshare
