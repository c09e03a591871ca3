#pragma once

#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>

/// A host and a gateway that send each other numbered messages and watch what comes.
namespace vexmor::Endurance
{

using namespace Bench;

/// Runs the event loop for so long.
void runFor(int milliseconds);

/// Calls a function at a steady rate, from the event loop.
class CPacer
{
public:
    explicit CPacer(std::function<void()> action) : m_action(std::move(action))
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const std::int64_t due = m_clock.nsecsElapsed() * m_rate / 1000000000;
            // When the process stood still, not all that is due goes out at once: buffers would run over.
            for (const std::int64_t end = std::min(due, m_done + 100); m_done < end; ++m_done) {
                m_action();
            }
        });
    }
    /// Calls a second; 0 stops.
    void start(int rate)
    {
        m_rate = rate;
        m_done = 0;
        m_clock.start();
        rate > 0 ? m_timer.start(1) : m_timer.stop();
    }

private:
    const std::function<void()> m_action;
    QTimer m_timer;
    QElapsedTimer m_clock;
    std::int64_t m_done = 0;
    int m_rate = 0;
};

/// An interface whose host sends numbered messages and counts what it is told.
class CCountingHost : public QObject
{
    Q_OBJECT

public:
    /// Closed.
    CCountingHost(EProtocol protocol, std::uint16_t port, const QString& address = QStringLiteral("127.0.0.1"));

    Cim::CCanInterface& canInterface() { return *m_interface; }
    /// Messages a second; 0: none any more.
    void send(int rate) { m_pacer.start(rate); }
    /// Takes the messages that are there.
    void read()
    {
        for (Cim::CCanMessage next; m_interface->readMessage(next) == 0;) {
            fromGateway.take(numberOf(next.data()));
        }
    }
    /// From now on every millisecond.
    void readAlways() { m_reader.start(1); }

    std::uint64_t accepted = 0;
    std::uint64_t refusedSends = 0;
    std::map<int, std::uint64_t> refused; ///< by code
    std::map<int, std::uint64_t> errors;  ///< by interface error
    SSequence fromGateway;
    /// Called with each interface error, and with the code of the first refused send: "error 0", "sends give 108".
    std::function<void(const std::string&)> onTold = [](const std::string&) {};

private Q_SLOTS:
    void onInterfaceError(int error)
    {
        ++errors[error];
        onTold(text("error %d", error));
    }

private:
    void sendNext();

    std::unique_ptr<Cim::CCanInterface> m_interface;
    CPacer m_pacer{[this] { sendNext(); }};
    QTimer m_reader;
};

/// What a gateway has counted.
struct STotals {
    std::uint64_t generated = 0;
    std::uint64_t offline = 0; ///< of these, while no host was connected
    std::uint64_t drops = 0;   ///< links reset
    SSequence fromHost;
};

/// A simulated gateway that sends numbered messages to its host and watches those of the host.
class CCountingGateway
{
public:
    /// Sends so many messages a second from when the first request of a host came in.
    explicit CCountingGateway(int rate, const STotals& before = {});
    /// Sends no more.
    void stop() { m_pacer.start(0); }

    Sim::CSimBus bus;
    Sim::CSimGateway gateway{bus};
    STotals totals; ///< with those of the gateway before this one

private:
    void send();

    CPacer m_pacer{[this] { send(); }};
    int m_rate;
};

/// A CCountingGateway in a process of its own, at 127.0.0.1: this program once more, in another role.
class CGatewayRole
{
public:
    /// The role itself, to be asked for first in main: true when this process has it, and has ended.
    static bool run(int argc, char** argv);

    /// Resets the TCP links so often; 0: never. Throws std::runtime_error when it does not start.
    explicit CGatewayRole(int rate, int dropEveryMs = 0);
    ~CGatewayRole();

    std::uint16_t port() const { return m_port; }
    /// Lets it send no more, and a moment later end and tell what it counted. The event loop runs meanwhile.
    STotals finish();

private:
    QProcess m_process;
    std::uint16_t m_port = 0;
};

} // namespace vexmor::Endurance
