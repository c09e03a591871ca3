// What many gateways in one process cost, each at a full bus of 1 Mbit/s: by the plugin, and by plain QTcpSockets.
// Prints tables in Markdown. See docs/performance.md.
#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "bench/processes.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <QTimer>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <thread>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_TURNS = 3;
constexpr int WARM_UP_MS = 300;
constexpr int MEASURED_MS = 1000;
constexpr int DRAIN_INTERVAL_MS = 10;
constexpr int HOST_PROCESSOR = 0;
constexpr int SENDER_PROCESSOR = 1;
constexpr int MAX_SEGMENT = 9; ///< frames that a gateway joins
constexpr int GATEWAYS[] = {1, 10, 100, 200};
/// When fewer than this share of the frames of full buses came, the sending process had too little time.
constexpr double IN_PACE = 0.99;
/// Frames of 8 data bytes that a bus of 1 Mbit/s carries.
constexpr int FRAMES_PER_SECOND = 9000;
constexpr double TICK_NS = 1e9 / FRAMES_PER_SECOND;
/// Behind by so much, the process has lost the pace.
constexpr double MAX_LAG_NS = 50e6;
constexpr int SEND_BUFFER = 256 * 1024;

void sleepUntil(double time)
{
    timespec until{};
    until.tv_sec = static_cast<time_t>(time / 1e9);
    until.tv_nsec = static_cast<long>(time - static_cast<double>(until.tv_sec) * 1e9);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

struct SBus {
    int socket;
    std::uint32_t sequence = 0;
};

/// False when the host has gone.
bool deliver(SBus& bus, int frames)
{
    std::uint8_t segment[MAX_SEGMENT * FRAME_SIZE];
    const std::size_t size = static_cast<std::size_t>(frames) * FRAME_SIZE;
    for (std::size_t offset = 0; offset < size; offset += FRAME_SIZE, ++bus.sequence) {
        SMessage message{static_cast<std::uint16_t>(bus.sequence & 0x7FF), {}};
        std::memcpy(message.data.data(), &bus.sequence, sizeof bus.sequence);
        writeFrame(message, segment + offset);
    }
    const ssize_t sent = ::send(bus.socket, segment, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(size) || (sent < 0 && errno == EAGAIN);
}

/// Gateways at full buses, behind one TCP port: every connection is a gateway. They start when all are connected, and
/// deliver frames at the pace of a bus, spread over time, whether the host keeps up or not. What does not fit into a
/// connection's buffer (some tenths of a second) is lost, as a gateway's is, and leaves a gap in the sequence. When the
/// process itself cannot keep the pace it sends less, without a gap.
void sendAtBusPace(int listener, int gateways, int framesPerSegment)
{
    std::vector<SBus> buses;
    for (int i = 0; i < gateways; ++i) {
        const int socket = accept(listener, nullptr, nullptr);
        check(socket >= 0, "accept");
        setNoDelay(socket);
        check(setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER) == 0, "SO_SNDBUF");
        buses.push_back({socket});
    }
    prctl(PR_SET_TIMERSLACK, 1UL);
    double next = nanoseconds(CLOCK_MONOTONIC);
    for (std::size_t tick = 0;; ++tick) {
        sleepUntil(next);
        // In a tick each bus carries a frame; a gateway that joins several sends in every so many ticks.
        const auto step = static_cast<std::size_t>(framesPerSegment);
        for (std::size_t bus = tick % step; bus < buses.size(); bus += step) {
            if (!deliver(buses[bus], framesPerSegment)) {
                return;
            }
        }
        const double now = nanoseconds(CLOCK_MONOTONIC);
        next = now - next > MAX_LAG_NS ? now : next + TICK_NS;
    }
}
/// A host's side of one bus, which takes what comes.
class CQtBus
{
public:
    explicit CQtBus(std::uint16_t port)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] {
            while (m_socket.bytesAvailable() > 0) {
                m_reader.readFrom(
                    [this](std::uint8_t* bytes, std::size_t size) {
                        return m_socket.read(reinterpret_cast<char*>(bytes), static_cast<qint64>(size));
                    },
                    [this](const SMessage& message) { sequence.take(numberOf(message.data.data())); });
            }
        });
        m_socket.connectToHost(QStringLiteral("127.0.0.1"), port);
        if (!m_socket.waitForConnected(PATIENCE_S * 1000)) {
            throw std::runtime_error(m_socket.errorString().toStdString());
        }
    }
    SSequence sequence;

private:
    QTcpSocket m_socket;
    CFrameReader m_reader;
};

/// The same with an interface, drained in intervals.
class CPluginBus
{
public:
    explicit CPluginBus(std::uint16_t port) : m_interface(makeInterface(EProtocol::eTcp, port))
    {
        open(*m_interface);
        QObject::connect(&timer(), &QTimer::timeout, m_interface.get(), [this] {
            for (Cim::CCanMessage message; m_interface->readMessage(message) == 0;) {
                sequence.take(numberOf(message.data()));
            }
        });
    }
    ~CPluginBus() { close(*m_interface); }
    SSequence sequence;

private:
    /// One for all.
    static QTimer& timer()
    {
        static QTimer* const timer = new QTimer(QCoreApplication::instance());
        timer->start(DRAIN_INTERVAL_MS);
        return *timer;
    }
    const std::unique_ptr<Cim::CCanInterface> m_interface;
};

void runFor(int ms)
{
    QTimer::singleShot(ms, Qt::PreciseTimer, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
}

/// What a host had of so many gateways.
struct SReceived {
    double nsPerFrame = 0;
    double delivered = 0; ///< share of the frames that full buses carry
    double heapKib = 0;   ///< for each gateway
    std::uint64_t lost = 0;
};

template <typename Bus>
SReceived receive(int gateways, int framesPerSegment)
{
    const SLoopbackSocket listener = bindToLoopback(EProtocol::eTcp);
    const CChildProcess senders(SENDER_PROCESSOR, [&] { sendAtBusPace(listener.socket, gateways, framesPerSegment); });
    ::close(listener.socket);
    const double heapBefore = resources().heapKib;
    std::vector<std::unique_ptr<Bus>> buses;
    repeat(gateways, [&] { buses.push_back(std::make_unique<Bus>(listener.port)); });
    const auto sum = [&buses](std::uint64_t SSequence::*count) {
        std::uint64_t result = 0;
        for (const auto& bus : buses) {
            result += bus->sequence.*count;
        }
        return result;
    };
    runFor(WARM_UP_MS);
    const std::uint64_t before = sum(&SSequence::received);
    const SCost cost = costOf([] { runFor(MEASURED_MS); });
    const double frames = static_cast<double>(sum(&SSequence::received) - before);
    return {cost.cpu / frames, frames / (cost.wall / 1e9 * FRAMES_PER_SECOND * gateways),
            (resources().heapKib - heapBefore) / gateways, sum(&SSequence::missing)};
}

/// Prints the row of one number of gateways. The sides take turns, so that other load on the machine meets both.
void compare(int gateways, int framesPerSegment, int turns)
{
    Values qTcpSocket, plugin, delivered, heapKib;
    std::uint64_t lost = 0;
    repeat(turns, [&] {
        qTcpSocket.push_back(receive<CQtBus>(gateways, framesPerSegment).nsPerFrame);
        const SReceived received = receive<CPluginBus>(gateways, framesPerSegment);
        plugin.push_back(received.nsPerFrame);
        delivered.push_back(received.delivered);
        heapKib.push_back(received.heapKib);
        lost += received.lost;
    });
    const bool inPace = median(delivered) >= IN_PACE;
    printRow({std::to_string(gateways), figure(median(qTcpSocket)), figure(median(plugin)),
              spread(ratios(plugin, qTcpSocket)), figure(median(delivered) * 100), std::to_string(lost),
              figure(median(heapKib)), inPace ? figure(1e9 / (median(plugin) * FRAMES_PER_SECOND)) : ""});
}

void run(int turns, int maxGateways)
{
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // as most hosts, a process with threads: locks cost more there
    plugin();                  // loaded before memory is looked at
    for (const int framesPerSegment : {MAX_SEGMENT, 1}) {
        std::printf("\nFrames per segment: %d\n", framesPerSegment);
        printHead({"gateways", "QTcpSocket, ns per frame", "plugin", "plugin / QTcpSocket", "delivered, %", "lost",
                   "heap per interface, KiB", "full buses per processor"});
        for (const int gateways : GATEWAYS) {
            if (gateways <= maxGateways) {
                compare(gateways, framesPerSegment, turns);
            }
        }
    }
}
} // namespace

/// Arguments, for a shorter run: turns, and the largest number of gateways.
int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return exitCodeOf("scale", [&] {
        run(argc > 1 ? std::atoi(argv[1]) : DEFAULT_TURNS, argc > 2 ? std::atoi(argv[2]) : *std::rbegin(GATEWAYS));
        return true;
    });
}
