#pragma once

#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QSemaphore>
#include <QThread>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

/// A host and a gateway that send each other numbered messages and count what arrives.
namespace vexmor::Endurance
{

using namespace Bench;

/// Runs the event loop for so long.
void runFor(int milliseconds);

/// Calls a function at a steady rate, from the event loop.
class CPacer
{
public:
    explicit CPacer(std::function<void()> action);
    /// Calls per second; 0 stops.
    void start(int rate);

private:
    const std::function<void()> m_action;
    QTimer m_timer;
    QElapsedTimer m_clock;
    std::int64_t m_done = 0;
    int m_rate = 0;
};

/// An interface whose host sends numbered messages and counts what the interface delivers.
class CCountingHost : public QObject
{
    Q_OBJECT

public:
    /// The interface is closed at first.
    CCountingHost(EProtocol protocol, std::uint16_t port, const QString& address = QStringLiteral("127.0.0.1"));

    Cim::CCanInterface& canInterface() { return *m_interface; }
    /// Messages per second; 0 stops.
    void send(int rate) { m_pacer.start(rate); }
    /// Reads the messages that wait.
    void read();
    /// From now on reads every millisecond.
    void readAlways() { m_reader.start(1); }

    std::uint64_t accepted = 0;
    std::uint64_t refusedSends = 0;
    std::map<int, std::uint64_t> refused; ///< Refused sends by code.
    std::map<int, std::uint64_t> errors;  ///< Interface errors by number.
    SSequence fromGateway;
    /// Called with each interface error, and with the code of the first refused send: "error 0", "sends give 108".
    std::function<void(const std::string&)> onEvent = [](const std::string&) {};

private Q_SLOTS:
    void onInterfaceError(int error);

private:
    void sendNext();

    std::unique_ptr<Cim::CCanInterface> m_interface;
    CPacer m_pacer{[this] { sendNext(); }};
    QTimer m_reader;
};

/// What a gateway has counted.
struct STotals {
    std::uint64_t generated = 0;
    std::uint64_t offline = 0; ///< Messages among these that were sent while no host was connected.
    std::uint64_t drops = 0;   ///< Times that the links were reset.
    SSequence fromHost;
};

/// A simulated gateway that sends numbered messages to its host and watches those of the host.
struct SCountingGateway {
    /// Sends so many messages per second from the first request of a host on.
    SCountingGateway(int rate, const STotals& before);

    Sim::CSimBus bus;
    Sim::CSimGateway gateway{bus};
    STotals totals; ///< Includes those of the gateway before this one.
    CPacer pacer;
    QTimer dropTimer; ///< Resets the TCP links whenever it expires; stopped at first.
};

/// An SCountingGateway in a thread of its own; switched on as long as the object exists.
class CGatewayThread
{
public:
    /// Prepares a gateway in its thread and makes it listen; returns false when that is not possible.
    using Listen = std::function<bool(Sim::CSimGateway&)>;
    static bool listenOnLoopback(Sim::CSimGateway& gateway);

    /// Continues to count from `before`. Throws std::runtime_error when the gateway does not start.
    explicit CGatewayThread(int rate, Listen listen = listenOnLoopback, const STotals& before = {});
    ~CGatewayThread() { switchOff(); }

    std::uint16_t port();
    /// Runs an action in the gateway's thread while the caller waits.
    void ask(const std::function<void(SCountingGateway&)>& action);
    /// Stops the traffic, lets messages under way arrive, then switches off. The event loop runs meanwhile.
    STotals finish();
    STotals switchOff();

private:
    SCountingGateway* m_gateway = nullptr; ///< Lives in the thread, which also deletes it.
    STotals m_totals;                      ///< Once switched off.
    QSemaphore m_started;
    std::unique_ptr<QThread> m_thread;
};

} // namespace vexmor::Endurance
