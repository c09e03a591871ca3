// What the plugin costs a host from end to end, beside a plain socket, a bare Qt socket and, where it is installed, Qt
// SerialBus's virtualcan in the same run. Prints a table in Markdown. See docs/performance.md.
#include "bench/gatewayProcess.h"
#include "bench/links.h"
#include "bench/measuring.h"
#ifdef CIM_HAS_SERIALBUS
#include "bench/virtualcan.h"
#endif

#include <QCoreApplication>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_ROUNDS = 25; ///< Measured rounds, after one that warms up.
constexpr int HOST_PROCESSOR = 0;
constexpr int OTHER_PROCESSOR = 1;
// The work of one round.
constexpr int RECEIVE_BURST = 8000;
constexpr int RECEIVE_BURSTS = 10;
constexpr int DATAGRAM_BURST = 200; ///< Fits into a socket's receive buffer in any case.
constexpr int DATAGRAM_BURSTS = 40;
constexpr int SEND_BATCH = 100; ///< Messages between two waits for the gateway.
constexpr int SEND_BATCHES = 20;
constexpr int ROUND_TRIPS = 200;

const SMessage ECHOED{ID_ECHO, {}};
const SMessage SWALLOWED{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};

/// Sends a request and receives its answers.
void exchange(CLink& link, const SMessage& request, int answers, std::uint64_t sum)
{
    link.send(request);
    if (link.receive(answers) != sum) {
        throw std::runtime_error("the messages are not those that the gateway sent");
    }
}

/// The cost per frame of bursts that the gateway sends on request.
SCost receiveBursts(CLink& link, int bursts, int frames)
{
    const SMessage request{ID_BURST, {static_cast<std::uint8_t>(frames >> 8), static_cast<std::uint8_t>(frames)}};
    std::uint64_t sum = 0;
    for (int number = 0; number < frames; ++number) {
        sum += lookAt(burstMessage(number));
    }
    return costOf([&] { repeat(bursts, [&] { exchange(link, request, frames, sum); }); }) / (bursts * frames);
}

/// The CPU time in ns per message, without the time in which the gateway catches up.
double sendBatches(CLink& link, const std::function<void(CLink&)>& sendBatch)
{
    double cpu = 0;
    repeat(SEND_BATCHES, [&] {
        exchange(link, ECHOED, 1, lookAt(ECHOED)); // until the gateway has read everything
        cpu += costOf([&] { sendBatch(link); }).cpu;
    });
    return cpu / (SEND_BATCHES * SEND_BATCH);
}

/// The time in us within which the given share of the round trips end, each behind so many unanswered messages.
double roundTrip(CLink& link, double share, int messagesBefore)
{
    Values times;
    repeat(ROUND_TRIPS, [&] {
        const SCost cost = costOf([&] {
            repeat(messagesBefore, [&] { link.send(SWALLOWED); });
            exchange(link, ECHOED, 1, lookAt(ECHOED));
        });
        times.push_back(cost.wall / 1000);
    });
    return quantile(times, share);
}

double receive(CLink& link)
{
    return receiveBursts(link, RECEIVE_BURSTS, RECEIVE_BURST).cpu;
}

enum ESide : std::size_t { RAW, QT_SOCKET, PLUGIN, VIRTUALCAN, ALL_SIDES };
constexpr std::size_t SOCKETS_AND_PLUGIN = VIRTUALCAN;
using Figures = std::vector<Values>; ///< One figure for each side and round.

/// Sides that take turns, each with a gateway process of its own on the same processor.
class CSides
{
public:
    CSides(EProtocol protocol, int gatewayProcessor, int rounds)
        : m_protocol(protocol), m_gatewayProcessor(gatewayProcessor), m_rounds(rounds)
    {
        for (const MakeLink makeLink : {makeRawLink, makeQtLink, makePluginLink}) {
            add(makeLink, RM_LANGUAGE);
        }
#ifdef CIM_HAS_SERIALBUS
        if (protocol == EProtocol::eTcp && hasVirtualcan()) {
            add(makeVirtualcanLink, VIRTUALCAN_LANGUAGE);
        }
#endif
    }
    /// Measures the first so many sides in all rounds, after one that warms up.
    Figures measure(const std::function<double(CLink&)>& round, std::size_t sides = ALL_SIDES) const
    {
        Figures figures(std::min(sides, m_links.size()));
        for (int number = 0; number <= m_rounds; ++number) {
            for (std::size_t side = 0; side < figures.size(); ++side) {
                const double value = round(*m_links[side]);
                if (number > 0) {
                    figures[side].push_back(value);
                }
            }
        }
        return figures;
    }

private:
    using MakeLink = std::unique_ptr<CLink> (*)(EProtocol protocol, std::uint16_t port);
    void add(MakeLink makeLink, const SLanguage& language)
    {
        m_gateways.push_back(std::make_unique<CGatewayProcess>(m_protocol, m_gatewayProcessor, language));
        m_links.push_back(makeLink(m_protocol, m_gateways.back()->port()));
    }

    const EProtocol m_protocol;
    const int m_gatewayProcessor;
    const int m_rounds;
    std::vector<std::unique_ptr<CGatewayProcess>> m_gateways;
    std::vector<std::unique_ptr<CLink>> m_links;
};

void addRow(const std::string& name, Figures figures)
{
    figures.resize(ALL_SIDES);
    std::vector<std::string> cells{name};
    for (const Values& side : figures) {
        cells.push_back(side.empty() ? "" : figure(median(side)));
    }
    for (const auto& [of, to] : {std::pair{PLUGIN, RAW}, std::pair{PLUGIN, QT_SOCKET}, std::pair{VIRTUALCAN, PLUGIN}}) {
        cells.push_back(spread(ratios(figures[of], figures[to])));
    }
    printRow(cells);
}

void compareSending(const CSides& sides, const std::string& protocol)
{
    const auto sendBare = [](CLink& link) { repeat(SEND_BATCH, [&] { link.send(SWALLOWED); }); };
    const auto sendInTurns = [](CLink& link) {
        repeat(SEND_BATCH, [&] {
            link.send(SWALLOWED);
            QCoreApplication::processEvents(); // on all sides, whether they need it or not
        });
    };
    const auto sendJoined = [](CLink& link) { link.sendBurst(SWALLOWED, SEND_BATCH); };
    const auto sent = [&](auto sendBatch, std::size_t count = ALL_SIDES) {
        return sides.measure([=](CLink& link) { return sendBatches(link, sendBatch); }, count);
    };
    const auto trips = [&](double share, int messagesBefore) {
        return sides.measure([=](CLink& link) { return roundTrip(link, share, messagesBefore); });
    };
    // Without an event loop virtualcan sends nothing.
    addRow("sent over " + protocol + ", nothing but the call, CPU, ns", sent(sendBare, SOCKETS_AND_PLUGIN));
    addRow("sent over " + protocol + ", one per turn of the event loop, CPU, ns", sent(sendInTurns));
    if (protocol == "TCP") {
        addRow("sent over TCP, 100 joined where the side can join, CPU, ns", sent(sendJoined));
    }
    addRow("round trip over " + protocol + ", p50, us", trips(0.5, 0));
    addRow("round trip over " + protocol + ", p99, us", trips(0.99, 0));
    addRow("the same right behind another message, p50, us", trips(0.5, 1));
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    // First: once there were two threads the locks cost what they cost.
    const Figures singleThreaded =
        CSides(EProtocol::eTcp, OTHER_PROCESSOR, rounds).measure(receive, SOCKETS_AND_PLUGIN);
    std::thread([] {}).join();
    printHead({"frames of 8 data bytes; process with threads", "raw", "Qt socket", "plugin", "virtualcan",
               "plugin / raw", "plugin / Qt socket", "virtualcan / plugin"});
    {
        const CSides tcp(EProtocol::eTcp, OTHER_PROCESSOR, rounds);
        addRow("received over TCP, bursts of 8000, CPU, ns", tcp.measure(receive));
        addRow("received over TCP, bursts of 8000, 1000 frames/s",
               tcp.measure([](CLink& link) { return 1e6 / receiveBursts(link, RECEIVE_BURSTS, RECEIVE_BURST).wall; }));
        const CSides udp(EProtocol::eUdp, OTHER_PROCESSOR, rounds);
        addRow("received over UDP, bursts of 200 datagrams, CPU, ns",
               udp.measure([](CLink& link) { return receiveBursts(link, DATAGRAM_BURSTS, DATAGRAM_BURST).cpu; }));
        addRow("received over UDP, bursts of 200 datagrams, 1000 frames/s", udp.measure([](CLink& link) {
            return 1e6 / receiveBursts(link, DATAGRAM_BURSTS, DATAGRAM_BURST).wall;
        }));
    }
    compareSending(CSides(EProtocol::eTcp, HOST_PROCESSOR, rounds), "TCP");
    compareSending(CSides(EProtocol::eUdp, HOST_PROCESSOR, rounds), "UDP");
    addRow("received over TCP, process that never had two threads, CPU, ns", singleThreaded);
}
} // namespace

/// throughput [ROUNDS]: fewer than 25 show that it works, not what it costs.
int main(int argc, char** argv)
{
    // virtualcan reads the local time for each frame. Without TZ the C library looks at the file of the time zone each
    // time, which would flatter the plugin.
    setenv("TZ", "UTC", 0);
    setenv("QT_LOGGING_RULES", "qt.canbus.*=false", 0); // virtualcan logs that it is no server
    const QCoreApplication application(argc, argv);
    return exitCodeOf("throughput", [&] {
        run(argc > 1 ? std::max(std::atoi(argv[1]), 1) : DEFAULT_ROUNDS);
        return true;
    });
}
