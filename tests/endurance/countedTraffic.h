#pragma once

#include "bench/hostedInterface.h"
#include "bench/sequence.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTimer>

#include <cstdint>
#include <map>

/// A host and a gateway that send each other numbered messages and watch what comes.
namespace vexmor::Endurance
{

using namespace Bench;

/// Runs the event loop for so long.
void runFor(int milliseconds);

/// Puts numbered messages out at a steady rate: says when each is due, from the event loop.
class CPacer : public QObject
{
    Q_OBJECT

public:
    CPacer();
    /// Messages a second; 0 stops.
    void start(int rate);

Q_SIGNALS:
    void due();

private:
    void onTimeout();

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
    void read();
    /// From now on every millisecond.
    void readAlways() { m_reader.start(1); }

    std::uint64_t accepted = 0;
    std::map<int, std::uint64_t> refused; ///< sends, by code
    std::map<int, std::uint64_t> errors;  ///< by interface error
    SSequence fromGateway;

    std::uint64_t refusedSends() const;
    /// Of one interface error.
    std::uint64_t count(int error) const { return errors.count(error) == 0 ? 0 : errors.at(error); }

Q_SIGNALS:
    void sendRefused(int code);
    void error(int number);

private Q_SLOTS:
    void onInterfaceError(int number);

private:
    void sendNext();

    std::unique_ptr<Cim::CCanInterface> m_interface;
    CPacer m_pacer;
    QTimer m_reader;
};

/// A simulated gateway that sends numbered messages to its host and watches those of the host.
class CCountingGateway : public QObject
{
    Q_OBJECT

public:
    CCountingGateway();

    Sim::CSimGateway& gateway() { return m_gateway; }
    /// Starts when the first request of a host came in.
    void setRate(int rate) { m_rate = rate; }
    void stop() { m_pacer.start(0); }
    /// Resets the TCP links so often; 0: never.
    void dropEvery(int milliseconds);

    struct STotals {
        std::uint64_t generated = 0;
        std::uint64_t offline = 0; ///< of these, while no host was connected
        std::uint64_t drops = 0;   ///< links reset
        SSequence fromHost;
    };
    const STotals& totals() const { return m_totals; }
    /// Goes on counting where another gateway stopped.
    void goOn(const STotals& before) { m_totals = before; }

private:
    void send();

    Sim::CSimBus m_bus;
    Sim::CSimGateway m_gateway{m_bus};
    CPacer m_pacer;
    QTimer m_dropTimer;
    int m_rate = 0;
    STotals m_totals;
};

/// A CCountingGateway in a process of its own, at 127.0.0.1: this program once more, in another role.
class CGatewayRole
{
public:
    /// The role itself, to be asked for first in main: true when this process has it, and has ended.
    static bool run(int argc, char** argv);

    /// Throws std::runtime_error when it does not start.
    CGatewayRole(int rate, int dropEveryMs);
    ~CGatewayRole();

    std::uint16_t port() const { return m_port; }
    /// Lets it send no more, and a moment later end and tell what it counted. The event loop runs meanwhile.
    CCountingGateway::STotals finish();

private:
    QProcess m_process;
    std::uint16_t m_port = 0;
};

} // namespace vexmor::Endurance
