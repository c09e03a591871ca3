#pragma once

#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QTimer>

#include <map>
#include <optional>

namespace vexmor::Endurance
{

using namespace Bench;

/// Messages of one direction, numbered from 0.
struct SWay {
    std::uint64_t sent = 0; ///< Accepted by the host's interface, or put on the bus of a gateway with a client.
    SSequence arrived;

    std::uint64_t lost() const { return sent - arrived.received; }
};

constexpr auto LOST_HEAD = "lost, host to gateway; gateway to host";

/// A host and a simulated gateway in one thread, which send each other numbered messages and count what arrives.
class CCountedTraffic : public QObject
{
    Q_OBJECT

public:
    /// Sets the gateway's address and port (0: any). The gateway is switched off at first.
    CCountedTraffic(EProtocol protocol, const QString& address, std::uint16_t port);

    Sim::CSimGateway& gateway() { return *m_gateway; }
    bool hasClient() const { return m_gateway && m_gateway->tcpHostCount() + m_gateway->udpHostCount() > 0; }

    /// Switches a gateway on, whose MAC address ends with this byte. Throws std::runtime_error.
    void switchOn(std::uint8_t lastMacByte);
    void switchOff() { m_gateway.reset(); }
    /// Opens the interface, which reads every millisecond, and returns when the gateway knows it. A silent host sends
    /// neither messages nor requests.
    void open(bool isHostSilent = false);
    /// Sets the number of messages per second each way from now on; 0 stops.
    void send(int rate);
    /// Starts the clock of `events`.
    void startClock() { m_clock.start(); }
    /// Stops the traffic, and returns when all messages under way have arrived.
    void finish();

    /// Returns the number of lost messages, as a cell under LOST_HEAD.
    std::string lost() const;
    /// Returns whether the link was lost this many times and all other promises hold; prints the broken ones.
    bool isAsPromised(std::uint64_t losses) const;

    SWay up;            ///< Messages from the host to the gateway.
    SWay down;          ///< Messages from the gateway to the host.
    std::string events; ///< "error 0 after 5.8 s, sends give 109 after 5.8 s"

private Q_SLOTS:
    void onInterfaceError(int error);

private:
    void addEvent(const std::string& what);
    void sendDue();
    void read();

    const EProtocol m_protocol;
    const QString m_address;
    const std::uint16_t m_port;
    Sim::CSimBus m_bus;
    std::optional<Sim::CSimGateway> m_gateway;
    std::unique_ptr<Cim::CCanInterface> m_host;
    std::uint64_t m_refused = 0; ///< Sends that returned an error code.
    using Errors = std::map<int, std::uint64_t>;
    Errors m_errors; ///< Interface errors by number.
    QElapsedTimer m_clock;
    QTimer m_pacer;
    QElapsedTimer m_sending; ///< Time since the rate was set.
    std::int64_t m_done = 0; ///< Messages of each end since then.
    int m_rate = 0;
    bool m_isHostSilent = false;
    QTimer m_reader;
};

} // namespace vexmor::Endurance
