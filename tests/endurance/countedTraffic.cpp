#include "tests/endurance/countedTraffic.h"

#include <algorithm>

namespace vexmor::Endurance
{
namespace
{
constexpr int SETTLE_MS = 1500;  ///< Time in which all messages under way arrive.
constexpr int CATCH_UP = 100;    ///< Messages per turn at most, so that buffers do not overflow after a pause.
constexpr int MAX_CLIENTS = 256; ///< More than one, as a host may reconnect before the gateway notices the loss.

Cim::CCanMessage numberedMessage(std::uint64_t count)
{
    return {Cim::CCanId::fromValue(count & 0x7FF), sizeof count, reinterpret_cast<unsigned char*>(&count)};
}
} // namespace

CCountedTraffic::CCountedTraffic(EProtocol protocol, const QString& address, std::uint16_t port)
    : m_protocol(protocol), m_address(address), m_port(port)
{
    m_pacer.setTimerType(Qt::PreciseTimer);
    connect(&m_pacer, &QTimer::timeout, this, &CCountedTraffic::sendDue);
    connect(&m_reader, &QTimer::timeout, this, &CCountedTraffic::read);
}

void CCountedTraffic::switchOn(std::uint8_t lastMacByte)
{
    Sim::SSimIdentity identity;
    identity.macAddress.back() = lastMacByte;
    m_gateway.emplace(m_bus);
    m_gateway->setIdentity(identity);
    m_gateway->setMaxClients(MAX_CLIENTS);
    connect(&*m_gateway, &Sim::CSimGateway::messageReceived,
            [this](const Cim::CCanMessage& message) { up.arrived.take(message.data()); });
    connect(&*m_gateway, &Sim::CSimGateway::hostConnected, [this] { up.arrived.mayMiss = true; });
    if (m_gateway->listen(QHostAddress(m_address), m_port)) {
        throw std::runtime_error("the gateway does not start");
    }
}

void CCountedTraffic::open(bool isHostSilent)
{
    m_isHostSilent = isHostSilent;
    m_host = makeInterface(m_protocol, m_gateway->port(), m_address);
    if (isHostSilent) {
        m_host->setProperty("BusloadPollTime", 600000);
    }
    connect(m_host.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    Bench::open(*m_host);
    m_reader.start(1);
    waitUntil([this] { return hasClient(); });
}

void CCountedTraffic::send(int rate)
{
    m_rate = rate;
    m_done = 0;
    m_sending.start();
    m_pacer.start(1);
}

void CCountedTraffic::sendDue()
{
    const std::int64_t due = m_sending.nsecsElapsed() * m_rate / 1000000000;
    for (const std::int64_t end = std::min(due, m_done + CATCH_UP); m_done < end; ++m_done) {
        if (hasClient()) {
            m_bus.send(numberedMessage(down.sent++));
        }
        if (m_isHostSilent) {
            continue;
        }
        const int code = m_host->writeMessage(numberedMessage(up.sent));
        if (code == 0) {
            ++up.sent;
        } else if (m_refused++ == 0) {
            addEvent(text("sends give %d", code));
        }
    }
}

void CCountedTraffic::read()
{
    for (Cim::CCanMessage next; m_host->readMessage(next) == 0;) {
        down.arrived.take(next.data());
    }
}

void CCountedTraffic::onInterfaceError(int error)
{
    ++m_errors[error];
    if (error == 0) {
        read(); // messages that arrived before the loss
        down.arrived.mayMiss = true;
    }
    addEvent(text("error %d", error));
}

void CCountedTraffic::addEvent(const std::string& what)
{
    if (m_clock.isValid()) {
        events += text("%s%s after %.1f s", events.empty() ? "" : ", ", what.c_str(), m_clock.elapsed() / 1000.0);
    }
}

void CCountedTraffic::finish()
{
    send(0);
    runFor(SETTLE_MS);
}

std::string CCountedTraffic::lost() const
{
    return text("%lu of %lu (%lu more refused); %lu of %lu", up.lost(), up.sent, m_refused, down.lost(), down.sent);
}

bool CCountedTraffic::isAsPromised(std::uint64_t losses) const
{
    const SSequence& atGateway = up.arrived;
    const SSequence& atHost = down.arrived;
    bool ok = holds("error 0 is reported once per lost link, and no other error",
                    m_errors == (losses > 0 ? Errors{{0, losses}} : Errors{}));
    ok &= holds("no message comes twice or out of order", atGateway.disordered + atHost.disordered == 0);
    ok &= holds("the last messages arrive", atGateway.nextNumber == up.sent && atHost.nextNumber == down.sent);
    ok &= holds("messages are missing only where a link was lost",
                m_protocol == EProtocol::eUdp || atGateway.gaps + atHost.gaps == 0);
    return ok;
}

} // namespace vexmor::Endurance
