#include "bench/receivers.h"

#include "bench/hostedInterface.h"
#include "bench/processes.h"
#include "bench/resources.h"
#include "bench/sequence.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <QTimer>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace vexmor::Bench
{
namespace
{
constexpr int WARM_UP_MS = 300;
constexpr int MEASURED_MS = 1000;
constexpr int DRAIN_INTERVAL_MS = 10;
constexpr int EVENTS_A_TURN = 64;

/// A host of so many gateways; runs the event loop unless it has a better way.
class CReceiver
{
public:
    explicit CReceiver(int gateways)
        : m_sequences(static_cast<std::size_t>(gateways)), m_readers(static_cast<std::size_t>(gateways))
    {
    }
    virtual ~CReceiver() = default;
    virtual void runFor(int ms)
    {
        QTimer::singleShot(ms, Qt::PreciseTimer, QCoreApplication::instance(), &QCoreApplication::quit);
        QCoreApplication::exec();
    }
    std::uint64_t sum(std::uint64_t SSequence::*count) const
    {
        std::uint64_t result = 0;
        for (const SSequence& sequence : m_sequences) {
            result += sequence.*count;
        }
        return result;
    }

protected:
    /// `read(bytes, size)` as recv.
    template <typename Read>
    void take(std::size_t bus, Read&& read)
    {
        m_readers[bus].readFrom(read,
                                [&](const SMessage& message) { m_sequences[bus].take(numberOf(message.data.data())); });
    }
    std::vector<SSequence> m_sequences; ///< a gateway each

private:
    std::vector<CFrameReader> m_readers;
};

class CEpollReceiver : public CReceiver
{
public:
    CEpollReceiver(std::uint16_t port, int gateways) : CReceiver(gateways), m_epoll(epoll_create1(EPOLL_CLOEXEC))
    {
        check(m_epoll >= 0, "epoll_create1");
        for (int i = 0; i < gateways; ++i) {
            m_sockets.push_back(connectToLoopback(EProtocol::eTcp, port));
            epoll_event event{EPOLLIN, {}};
            event.data.u32 = static_cast<std::uint32_t>(i);
            check(epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_sockets.back(), &event) == 0, "epoll_ctl");
        }
    }
    void runFor(int ms) override
    {
        const double end = nanoseconds(CLOCK_MONOTONIC) + ms * 1e6;
        while (nanoseconds(CLOCK_MONOTONIC) < end) {
            epoll_event events[EVENTS_A_TURN];
            const int count = epoll_wait(m_epoll, events, EVENTS_A_TURN, DRAIN_INTERVAL_MS);
            for (int i = 0; i < count; ++i) {
                const std::size_t bus = events[i].data.u32;
                take(bus, [&](std::uint8_t* bytes, std::size_t size) { return ::read(m_sockets[bus], bytes, size); });
            }
        }
    }

private:
    const int m_epoll;
    std::vector<int> m_sockets;
};

class CQtReceiver : public CReceiver
{
public:
    CQtReceiver(std::uint16_t port, int gateways) : CReceiver(gateways)
    {
        for (std::size_t bus = 0; bus < m_sequences.size(); ++bus) {
            m_sockets.push_back(std::make_unique<QTcpSocket>());
            QTcpSocket* const socket = m_sockets.back().get();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, bus, socket] {
                while (socket->bytesAvailable() > 0) {
                    take(bus, [socket](std::uint8_t* bytes, std::size_t size) {
                        return socket->read(reinterpret_cast<char*>(bytes), static_cast<qint64>(size));
                    });
                }
            });
            socket->connectToHost(QStringLiteral("127.0.0.1"), port);
            if (!socket->waitForConnected(PATIENCE_S * 1000)) {
                throw std::runtime_error(socket->errorString().toStdString());
            }
        }
    }

private:
    std::vector<std::unique_ptr<QTcpSocket>> m_sockets;
};

class CPluginReceiver : public CReceiver
{
public:
    CPluginReceiver(std::uint16_t port, int gateways) : CReceiver(gateways)
    {
        for (int i = 0; i < gateways; ++i) {
            m_interfaces.push_back(makeInterface(EProtocol::eTcp, port));
            open(*m_interfaces.back());
        }
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            Cim::CCanMessage message;
            for (std::size_t bus = 0; bus < m_interfaces.size(); ++bus) {
                while (m_interfaces[bus]->readMessage(message) == 0) {
                    m_sequences[bus].take(numberOf(message.data()));
                }
            }
        });
        m_timer.start(DRAIN_INTERVAL_MS);
    }

private:
    std::vector<std::unique_ptr<Cim::CCanInterface>> m_interfaces;
    QTimer m_timer;
};

std::unique_ptr<CReceiver> makeReceiver(EReceiver receiver, std::uint16_t port, int gateways)
{
    switch (receiver) {
    case EReceiver::eEpoll:
        return std::make_unique<CEpollReceiver>(port, gateways);
    case EReceiver::eQTcpSocket:
        return std::make_unique<CQtReceiver>(port, gateways);
    default:
        return std::make_unique<CPluginReceiver>(port, gateways);
    }
}

/// After a while of warming up. A process with threads, as most hosts are.
SReceived receive(EReceiver receiver, std::uint16_t port, int gateways)
{
    int argumentCount = 1;
    char program[] = "scale";
    char* arguments[] = {program, nullptr};
    const QCoreApplication application(argumentCount, arguments);
    std::thread([] {}).join();
    plugin(); // loaded before memory is looked at
    const double heapBefore = resources().heapKib;
    const auto host = makeReceiver(receiver, port, gateways);
    host->runFor(WARM_UP_MS);
    SReceived received;
    const std::uint64_t before = host->sum(&SSequence::received);
    received.cost = costOf([&] { host->runFor(MEASURED_MS); });
    received.frames = host->sum(&SSequence::received) - before;
    received.lost = host->sum(&SSequence::missing);
    received.heapKib = resources().heapKib - heapBefore;
    return received;
}
} // namespace

SReceived receiveInProcess(EReceiver receiver, std::uint16_t port, int gateways, int processor)
{
    int results[2];
    check(pipe2(results, O_CLOEXEC) == 0, "pipe");
    const auto [readEnd, writeEnd] = results;
    std::optional<CChildProcess> process;
    process.emplace(processor, [&, writeEnd = writeEnd] {
        const SReceived received = receive(receiver, port, gateways);
        check(write(writeEnd, &received, sizeof received) == sizeof received, "write");
    });
    ::close(writeEnd);
    SReceived received;
    const bool complete = read(readEnd, &received, sizeof received) == sizeof received;
    ::close(readEnd);
    if (!complete) {
        throw std::runtime_error("a receiving process failed");
    }
    return received;
}

} // namespace vexmor::Bench
