#pragma once

#include "cim/canMessage.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTimer>

#include <cstdint>

namespace vexmor::Bench
{

/// Runs the event loop for so long.
void runFor(int milliseconds);

/// A message that carries its number; 8 data bytes.
Cim::CCanMessage numberedMessage(std::uint32_t number);
/// The number that a message carries, whoever made it.
std::uint32_t numberOf(const Cim::CCanMessage& message);

/// Watches numbered messages come in: each number may come once, and only higher than the ones before.
struct SSequenceCheck {
    std::uint64_t received = 0;
    std::uint64_t missing = 0;    ///< numbers that were left out so far
    std::uint64_t gaps = 0;       ///< how often some were
    std::uint64_t disordered = 0; ///< came twice, or late
    std::uint32_t nextNumber = 0; ///< one above the highest so far

    void take(std::uint32_t number);
};

/// Puts numbered messages out at a steady rate: calls `send` with each number, from the event loop.
class CPacer : public QObject
{
    Q_OBJECT

public:
    explicit CPacer(QObject* parent = nullptr);
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
        SSequenceCheck fromHost;
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

} // namespace vexmor::Bench
