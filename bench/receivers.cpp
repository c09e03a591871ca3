#include "bench/receivers.h"

#include "bench/busSenders.h"
#include "bench/hostApplication.h"
#include "bench/pluginLink.h"
#include "bench/processes.h"

#include <QTcpSocket>
#include <QTimer>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>

namespace vexmor::Bench
{
namespace
{
constexpr int WARM_UP_MS = 300;
constexpr int MEASURED_MS = 1000;
constexpr int DRAIN_INTERVAL_MS = 10;
constexpr int EVENTS_A_TURN = 64;

double residentKib()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    statm >> pages >> pages;
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

/// Counts a bus's frames and the gaps in their sequence.
class CSequence
{
public:
    void take(const std::uint8_t* data, SReceived& received)
    {
        std::uint32_t number = 0;
        std::memcpy(&number, data, SEQUENCE_SIZE);
        received.lost += number - m_next;
        m_next = number + 1;
        ++received.frames;
    }

private:
    std::uint32_t m_next = 0;
};

/// Cuts a bus's stream into frames with the benchmark's own parser.
class CStream
{
public:
    /// `read(bytes, size)` gives what the socket has, as recv does.
    template <typename Read>
    void readFrom(Read&& read, SReceived& received)
    {
        static std::array<std::uint8_t, READ_SIZE> s_buffer;
        std::memcpy(s_buffer.data(), m_cut.data(), m_cutSize);
        const auto got = read(s_buffer.data() + m_cutSize, s_buffer.size() - m_cutSize);
        if (got <= 0) {
            throw std::runtime_error("the gateways are gone");
        }
        const std::size_t count = m_cutSize + static_cast<std::size_t>(got);
        const std::size_t used = parseFrames(s_buffer.data(), count, [this, &received](const SMessage& message) {
            m_sequence.take(message.data.data(), received);
        });
        m_cutSize = count - used;
        std::memcpy(m_cut.data(), s_buffer.data() + used, m_cutSize);
    }

private:
    std::array<std::uint8_t, FRAME_SIZE> m_cut{}; ///< start of a frame
    std::size_t m_cutSize = 0;
    CSequence m_sequence;
};

/// Runs `runFor(ms)` to warm up and once more to measure.
template <typename RunFor>
void measure(SReceived& received, double residentBefore, RunFor&& runFor)
{
    runFor(WARM_UP_MS);
    received.frames = 0;
    received.cost = costOf([&] { runFor(MEASURED_MS); });
    received.residentKib = residentKib() - residentBefore;
}

SReceived receiveWithEpoll(std::uint16_t port, int gateways)
{
    SReceived received;
    const double residentBefore = residentKib();
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    check(epoll >= 0, "epoll_create1");
    std::vector<CStream> streams(static_cast<std::size_t>(gateways));
    std::vector<int> sockets;
    for (int i = 0; i < gateways; ++i) {
        sockets.push_back(connectToLoopback(EProtocol::eTcp, port));
        epoll_event event{EPOLLIN, {}};
        event.data.u32 = static_cast<std::uint32_t>(i);
        check(epoll_ctl(epoll, EPOLL_CTL_ADD, sockets.back(), &event) == 0, "epoll_ctl");
    }
    measure(received, residentBefore, [&](int ms) {
        const double end = nanoseconds(CLOCK_MONOTONIC) + ms * 1e6;
        while (nanoseconds(CLOCK_MONOTONIC) < end) {
            epoll_event events[EVENTS_A_TURN];
            const int count = epoll_wait(epoll, events, EVENTS_A_TURN, DRAIN_INTERVAL_MS);
            for (int i = 0; i < count; ++i) {
                const std::size_t bus = events[i].data.u32;
                streams[bus].readFrom(
                    [&](std::uint8_t* bytes, std::size_t size) { return ::recv(sockets[bus], bytes, size, 0); },
                    received);
            }
        }
    });
    return received;
}

void runEventLoop(int ms)
{
    QTimer::singleShot(ms, Qt::PreciseTimer, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
}

SReceived receiveWithQTcpSockets(std::uint16_t port, int gateways)
{
    SReceived received;
    const double residentBefore = residentKib();
    std::vector<CStream> streams(static_cast<std::size_t>(gateways));
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (CStream& stream : streams) {
        sockets.push_back(std::make_unique<QTcpSocket>());
        QTcpSocket* const socket = sockets.back().get();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, &stream, &received] {
            while (socket->bytesAvailable() > 0) {
                stream.readFrom(
                    [socket](std::uint8_t* bytes, std::size_t size) {
                        return socket->read(reinterpret_cast<char*>(bytes), static_cast<qint64>(size));
                    },
                    received);
            }
        });
        socket->connectToHost(QStringLiteral("127.0.0.1"), port);
        if (!socket->waitForConnected(PATIENCE_S * 1000)) {
            throw std::runtime_error(socket->errorString().toStdString());
        }
    }
    measure(received, residentBefore, runEventLoop);
    return received;
}

SReceived receiveWithPlugin(std::uint16_t port, int gateways)
{
    SReceived received;
    CPluginLink(EProtocol::eTcp, port); // loads the library
    const double residentBefore = residentKib();
    std::vector<CPluginLink> links;
    std::vector<CSequence> sequences(static_cast<std::size_t>(gateways));
    for (int i = 0; i < gateways; ++i) {
        links.emplace_back(EProtocol::eTcp, port).open();
    }
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        for (std::size_t bus = 0; bus < links.size(); ++bus) {
            Cim::CCanMessage message;
            while (links[bus].read(message)) {
                sequences[bus].take(message.data(), received);
            }
        }
    });
    timer.start(DRAIN_INTERVAL_MS);
    measure(received, residentBefore, runEventLoop);
    return received;
}

SReceived receiveWithQt(EReceiver receiver, std::uint16_t port, int gateways)
{
    const CHostApplication application;
    return receiver == EReceiver::ePlugin ? receiveWithPlugin(port, gateways) : receiveWithQTcpSockets(port, gateways);
}
} // namespace

SReceived receiveInProcess(EReceiver receiver, std::uint16_t port, int gateways, int processor)
{
    int results[2];
    check(pipe2(results, O_CLOEXEC) == 0, "pipe");
    const auto [readEnd, writeEnd] = results;
    std::optional<CChildProcess> process;
    process.emplace(processor, [&, writeEnd = writeEnd] {
        const SReceived received =
            receiver == EReceiver::eEpoll ? receiveWithEpoll(port, gateways) : receiveWithQt(receiver, port, gateways);
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
