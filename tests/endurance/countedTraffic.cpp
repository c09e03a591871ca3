#include "tests/endurance/countedTraffic.h"

#include <QEventLoop>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace vexmor::Endurance
{
namespace
{
constexpr int SETTLE_MS = 1000;  ///< What is under way when the traffic stops has arrived by then.
constexpr int CATCH_UP = 100;    ///< Calls at once at most: buffers would overflow after a pause of the process.
constexpr int MAX_CLIENTS = 256; ///< A host that was cut off may connect again before the gateway notices.
constexpr std::uint16_t STANDARD_IDS = 0x800;

Cim::CCanMessage numberedMessage(std::uint64_t count)
{
    const std::uint32_t numbers[] = {static_cast<std::uint32_t>(count), ~static_cast<std::uint32_t>(count)};
    unsigned char data[sizeof numbers];
    std::memcpy(data, numbers, sizeof numbers);
    return Cim::CCanMessage(Cim::CCanId::fromValue(static_cast<std::uint16_t>(count % STANDARD_IDS)), sizeof data,
                            data);
}
} // namespace

void runFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

CPacer::CPacer(std::function<void()> action) : m_action(std::move(action))
{
    m_timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_timer, &QTimer::timeout, [this] {
        const std::int64_t due = m_clock.nsecsElapsed() * m_rate / 1000000000;
        for (const std::int64_t end = std::min(due, m_done + CATCH_UP); m_done < end; ++m_done) {
            m_action();
        }
    });
}

void CPacer::start(int rate)
{
    m_rate = rate;
    m_done = 0;
    m_clock.start();
    rate > 0 ? m_timer.start(1) : m_timer.stop();
}

CCountingHost::CCountingHost(EProtocol protocol, std::uint16_t port, const QString& address)
    : m_interface(makeInterface(protocol, port, address))
{
    connect(m_interface.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    connect(&m_reader, &QTimer::timeout, this, &CCountingHost::read);
}

void CCountingHost::read()
{
    for (Cim::CCanMessage next; m_interface->readMessage(next) == 0;) {
        fromGateway.take(numberOf(next.data()));
    }
}

void CCountingHost::onInterfaceError(int error)
{
    ++errors[error];
    onEvent(text("error %d", error));
}

void CCountingHost::sendNext()
{
    const int code = m_interface->writeMessage(numberedMessage(accepted));
    if (code == 0) {
        ++accepted;
        return;
    }
    ++refused[code];
    if (refusedSends++ == 0) {
        onEvent(text("sends give %d", code));
    }
}

SCountingGateway::SCountingGateway(int rate, const STotals& before)
    : totals(before), pacer([this] {
          totals.offline += gateway.tcpHostCount() + gateway.udpHostCount() == 0 ? 1 : 0;
          bus.send(numberedMessage(totals.generated++));
      })
{
    gateway.setMaxClients(MAX_CLIENTS);
    QObject::connect(&gateway, &Sim::CSimGateway::messageReceived,
                     [this](const Cim::CCanMessage& message) { totals.fromHost.take(numberOf(message.data())); });
    QObject::connect(&gateway, &Sim::CSimGateway::requestReceived, [this, rate]() mutable {
        if (rate > 0) {
            pacer.start(std::exchange(rate, 0));
        }
    });
    QObject::connect(&dropTimer, &QTimer::timeout, [this] {
        gateway.dropLinks();
        ++totals.drops;
    });
}

bool CGatewayThread::listenOnLoopback(Sim::CSimGateway& gateway)
{
    return !gateway.listen(QHostAddress(QHostAddress::LocalHost), 0);
}

CGatewayThread::CGatewayThread(int rate, Listen listen, const STotals& before)
{
    m_thread.reset(QThread::create([this, rate, before, listen = std::move(listen)] {
        SCountingGateway gateway(rate, before);
        const bool listens = listen(gateway.gateway);
        m_gateway = listens ? &gateway : nullptr;
        m_started.release();
        if (listens) {
            QEventLoop().exec();
            m_totals = gateway.totals;
        }
    }));
    m_thread->start();
    m_started.acquire();
    if (m_gateway == nullptr) {
        m_thread->wait();
        throw std::runtime_error("the gateway does not start");
    }
}

std::uint16_t CGatewayThread::port()
{
    std::uint16_t port = 0;
    ask([&port](SCountingGateway& gateway) { port = gateway.gateway.port(); });
    return port;
}

void CGatewayThread::ask(const std::function<void(SCountingGateway&)>& action)
{
    QMetaObject::invokeMethod(
        &m_gateway->gateway, [&] { action(*m_gateway); }, Qt::BlockingQueuedConnection);
}

STotals CGatewayThread::finish()
{
    ask([](SCountingGateway& one) {
        one.pacer.start(0);
        one.dropTimer.stop();
    });
    runFor(SETTLE_MS);
    return switchOff();
}

STotals CGatewayThread::switchOff()
{
    m_thread->quit();
    m_thread->wait();
    return m_totals;
}

} // namespace vexmor::Endurance
