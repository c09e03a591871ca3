// Measures the cost of the plugin in a host from end to end, and in the same run the cost of a plain socket, a bare Qt
// socket and, if installed, virtualcan of Qt SerialBus. Prints a table in Markdown. See docs/performance.md.
#include "bench/links.h"
#include "bench/measuring.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <thread>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_ROUNDS = 25; ///< Measured rounds, after one that warms up.
constexpr int HOST_PROCESSOR = 0;
constexpr int OTHER_PROCESSOR = 1;
// The amount of work in one round.
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

/// Returns the CPU time in ns per frame of bursts that the gateway sends on request.
double receiveBursts(CLink& link, int bursts, int frames)
{
    const SMessage request{ID_BURST, {static_cast<std::uint8_t>(frames >> 8), static_cast<std::uint8_t>(frames)}};
    std::uint64_t sum = 0;
    for (int number = 0; number < frames; ++number) {
        sum += lookAt(burstMessage(number));
    }
    return costOf([&] { repeat(bursts, [&] { exchange(link, request, frames, sum); }); }).cpu / (bursts * frames);
}

/// Returns the CPU time in ns per message, each sent in its own turn of the event loop, without the time in which the
/// gateway catches up.
double send(CLink& link)
{
    double cpu = 0;
    repeat(SEND_BATCHES, [&] {
        exchange(link, ECHOED, 1, lookAt(ECHOED)); // waits until the gateway has read everything
        cpu += costOf([&] {
                   repeat(SEND_BATCH, [&] {
                       link.send(SWALLOWED);
                       QCoreApplication::processEvents(); // on every side, also where nothing needs it
                   });
               }).cpu;
    });
    return cpu / (SEND_BATCHES * SEND_BATCH);
}

/// Returns the median time of a round trip in us.
double roundTrip(CLink& link)
{
    Values times;
    repeat(ROUND_TRIPS,
           [&] { times.push_back(costOf([&] { exchange(link, ECHOED, 1, lookAt(ECHOED)); }).wall / 1000); });
    return median(times);
}

enum ESide : std::size_t { RAW, QT_SOCKET, PLUGIN, VIRTUALCAN, ALL_SIDES };
struct SSide {
    std::unique_ptr<CLink> (*makeLink)(EProtocol protocol, std::uint16_t port);
    const SLanguage& language;
};
using Row =
    std::pair<std::string, std::function<double(CLink&)>>; ///< The name of the row, and the measurement of a round.

/// Prints the rows of a protocol. The sides take turns, each with a gateway process of its own on the same processor.
void compare(EProtocol protocol, int gatewayProcessor, int rounds, const std::vector<Row>& rows)
{
    std::vector<SSide> sides{{makeRawLink, RM_LANGUAGE}, {makeQtLink, RM_LANGUAGE}, {makePluginLink, RM_LANGUAGE}};
#ifdef CIM_HAS_SERIALBUS
    if (protocol == EProtocol::eTcp && hasVirtualcan()) {
        sides.push_back({makeVirtualcanLink, VIRTUALCAN_LANGUAGE});
    }
#endif
    std::deque<CGatewayProcess> gateways;
    std::vector<std::unique_ptr<CLink>> links;
    for (const SSide& side : sides) {
        gateways.emplace_back(protocol, gatewayProcessor, side.language);
        links.push_back(side.makeLink(protocol, gateways.back().port()));
    }
    for (const auto& [name, round] : rows) {
        Values figures[ALL_SIDES];
        for (int number = 0; number <= rounds; ++number) {
            for (std::size_t side = 0; side < links.size(); ++side) {
                const double value = round(*links[side]);
                if (number > 0) {
                    figures[side].push_back(value);
                }
            }
        }
        std::vector<std::string> cells{(protocol == EProtocol::eTcp ? "TCP: " : "UDP: ") + name};
        for (const Values& side : figures) {
            cells.push_back(side.empty() ? "" : figure(median(side)));
        }
        cells.push_back(ratio(figures[PLUGIN], figures[RAW]));
        cells.push_back(ratio(figures[PLUGIN], figures[QT_SOCKET]));
        cells.push_back(ratio(figures[VIRTUALCAN], figures[PLUGIN]));
        printRow(cells);
    }
}
} // namespace

/// Usage: throughput [ROUNDS]. With fewer than 25 rounds the figures are not reliable, but show that everything works.
int main(int argc, char** argv)
{
    // virtualcan reads the local time for each frame. Without TZ the C library looks at the file of the time zone each
    // time, which would flatter the plugin.
    setenv("TZ", "UTC", 0);
    setenv("QT_LOGGING_RULES", "qt.canbus.*=false", 0); // virtualcan logs that it is not a server
    const QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? std::max(std::atoi(argv[1]), 1) : DEFAULT_ROUNDS;
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // makes this a process with threads, like most host applications: locks cost more there
    printHead({"frames of 8 data bytes", "raw", "Qt socket", "plugin", "virtualcan", "plugin / raw",
               "plugin / Qt socket", "virtualcan / plugin"});
    compare(EProtocol::eTcp, OTHER_PROCESSOR, rounds,
            {{"received in bursts of 8000, CPU, ns", [](CLink& link) { return receiveBursts(link, 10, 8000); }}});
    compare(EProtocol::eUdp, OTHER_PROCESSOR, rounds, // bursts of 200, which fit into any receive buffer
            {{"received in bursts of 200, CPU, ns", [](CLink& link) { return receiveBursts(link, 40, 200); }}});
    for (const EProtocol protocol : {EProtocol::eTcp, EProtocol::eUdp}) {
        compare(protocol, HOST_PROCESSOR, rounds,
                {{"sent, one per turn of the event loop, CPU, ns", send}, {"round trip, us", roundTrip}});
    }
    return 0;
}
