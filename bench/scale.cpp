// Measures the cost of many gateways in one host process, each with a full bus of 1 Mbit/s. Prints a table in Markdown.
// See docs/performance.md.
#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "bench/processes.h"

#include <QCoreApplication>
#include <QTimer>

#include <sys/prctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_TURNS = 3;
constexpr int GATEWAYS[] = {1, 10, 100, 200};
constexpr int WARM_UP_MS = 300;
constexpr int MEASURED_MS = 1000;
constexpr int DRAIN_INTERVAL_MS = 10;
constexpr int HOST_PROCESSOR = 0;
constexpr int SENDER_PROCESSOR = 1;
constexpr std::size_t SEGMENT = 9; ///< Frames that a gateway sends in one segment.
constexpr int SEND_BUFFER = 256 * 1024;
constexpr int FRAMES_PER_SECOND = 9000; ///< Frames of 8 data bytes that a bus of 1 Mbit/s carries.
constexpr std::chrono::nanoseconds TICK(1000000000 / FRAMES_PER_SECOND);
constexpr std::chrono::milliseconds MAX_LAG(50); ///< A sending process that is further behind skips the missed frames.

/// Plays gateways with full buses behind one TCP port: every connection is a gateway. They start when all are
/// connected, and send at the pace of a bus, spread over time, even if the host does not keep up. Messages that do not
/// fit into the buffer of a connection are lost and leave a gap in the numbers. Returns when the host has closed a
/// connection.
void sendAtBusPace(const CLoopbackSocket& listener, std::size_t gateways)
{
    std::vector<int> buses;
    while (buses.size() < gateways) {
        buses.push_back(listener.acceptClient());
        check(setsockopt(buses.back(), SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER) == 0, "SO_SNDBUF");
    }
    prctl(PR_SET_TIMERSLACK, 1UL);
    auto due = std::chrono::steady_clock::now();
    // A bus carries one frame per tick, so a gateway that sends SEGMENT frames at a time sends in every SEGMENTth tick.
    for (std::size_t tick = 0;; ++tick) {
        std::uint8_t segment[SEGMENT * FRAME_SIZE];
        for (std::size_t i = 0; i < SEGMENT; ++i) {
            const auto number = static_cast<std::uint32_t>(tick / SEGMENT * SEGMENT + i);
            SMessage message{static_cast<std::uint16_t>(number & 0x7FF), {}};
            std::memcpy(message.data.data(), &number, sizeof number);
            writeFrame(message, segment + i * FRAME_SIZE);
        }
        std::this_thread::sleep_until(due);
        for (std::size_t bus = tick % SEGMENT; bus < gateways; bus += SEGMENT) {
            if (::send(buses[bus], segment, sizeof segment, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno != EAGAIN) {
                return;
            }
        }
        due = std::max(due + TICK, std::chrono::steady_clock::now() - MAX_LAG);
    }
}

/// An open interface, and the check of the messages that it receives.
struct SBus {
    std::unique_ptr<Cim::CCanInterface> canInterface;
    SSequence sequence;

    ~SBus() { close(*canInterface); }
    /// Returns the number of messages read.
    std::uint64_t drain()
    {
        const std::uint64_t before = sequence.received;
        for (Cim::CCanMessage message; canInterface->readMessage(message) == 0;) {
            sequence.take(message.data());
        }
        return sequence.received - before;
    }
};

/// Prints the row for this number of gateways.
void measure(int gateways, int turns)
{
    Values nsPerFrame, delivered, heapKib;
    std::uint64_t lost = 0;
    repeat(turns, [&] {
        const CLoopbackSocket listener(EProtocol::eTcp);
        const CChildProcess sender(SENDER_PROCESSOR, [&] { sendAtBusPace(listener, std::size_t(gateways)); });
        const double heapBefore = resources().heapKib;
        std::vector<SBus> buses(static_cast<std::size_t>(gateways));
        for (SBus& bus : buses) {
            bus.canInterface = makeInterface(EProtocol::eTcp, listener.port());
            open(*bus.canInterface);
        }
        std::uint64_t frames = 0;
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, [&] {
            for (SBus& bus : buses) {
                frames += bus.drain();
            }
        });
        timer.start(DRAIN_INTERVAL_MS);
        runFor(WARM_UP_MS);
        frames = 0;
        const SCost cost = costOf([] { runFor(MEASURED_MS); });
        nsPerFrame.push_back(cost.cpu / double(frames));
        delivered.push_back(double(frames) / (cost.wall / 1e9 * FRAMES_PER_SECOND * gateways) * 100);
        heapKib.push_back((resources().heapKib - heapBefore) / gateways);
        for (const SBus& bus : buses) {
            lost += bus.sequence.missing;
        }
    });
    printRow({std::to_string(gateways), figure(median(nsPerFrame)), figure(median(delivered)), std::to_string(lost),
              figure(median(heapKib))});
}
} // namespace

/// Usage: scale [TURNS [MOST GATEWAYS]]. The arguments make a run shorter.
int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // makes this a process with threads, like most host applications: locks cost more there
    plugin();                  // loaded before memory is measured
    printHead({"gateways", "CPU per frame, ns", "delivered, %", "lost", "heap per interface, KiB"});
    for (const int gateways : GATEWAYS) {
        if (gateways <= (argc > 2 ? std::atoi(argv[2]) : *std::rbegin(GATEWAYS))) {
            measure(gateways, argc > 1 ? std::atoi(argv[1]) : DEFAULT_TURNS);
        }
    }
    return 0;
}
