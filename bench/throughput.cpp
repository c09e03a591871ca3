// What the plugin costs a host from end to end, beside a plain socket, a bare Qt socket and, where it is installed, Qt
// SerialBus's virtualcan in the same run. Prints a table in Markdown. See docs/performance.md.
#include "bench/gatewayProcess.h"
#include "bench/links.h"
#include "bench/measuring.h"

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

/// The CPU time in ns per message, each sent in a turn of the event loop, without the time in which the gateway catches
/// up.
double send(CLink& link)
{
    double cpu = 0;
    repeat(SEND_BATCHES, [&] {
        exchange(link, ECHOED, 1, lookAt(ECHOED)); // until the gateway has read everything
        cpu += costOf([&] {
                   repeat(SEND_BATCH, [&] {
                       link.send(SWALLOWED);
                       QCoreApplication::processEvents(); // on all sides, whether they need it or not
                   });
               }).cpu;
    });
    return cpu / (SEND_BATCHES * SEND_BATCH);
}

/// The median time of a round trip in us.
double roundTrip(CLink& link)
{
    Values times;
    repeat(ROUND_TRIPS,
           [&] { times.push_back(costOf([&] { exchange(link, ECHOED, 1, lookAt(ECHOED)); }).wall / 1000); });
    return median(times);
}

enum ESide : std::size_t { RAW, QT_SOCKET, PLUGIN, VIRTUALCAN, ALL_SIDES };

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
    /// Measures all rounds and prints the row.
    void compare(const std::string& name, const std::function<double(CLink&)>& round) const
    {
        Values figures[ALL_SIDES];
        for (int number = 0; number <= m_rounds; ++number) {
            for (std::size_t side = 0; side < m_links.size(); ++side) {
                const double value = round(*m_links[side]);
                if (number > 0) {
                    figures[side].push_back(value);
                }
            }
        }
        std::vector<std::string> cells{name + (m_protocol == EProtocol::eTcp ? ", TCP" : ", UDP")};
        for (const Values& side : figures) {
            cells.push_back(side.empty() ? "" : figure(median(side)));
        }
        cells.push_back(ratio(figures[PLUGIN], figures[RAW]));
        cells.push_back(ratio(figures[PLUGIN], figures[QT_SOCKET]));
        cells.push_back(ratio(figures[VIRTUALCAN], figures[PLUGIN]));
        printRow(cells);
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

void compareReceiving(const CSides& sides, int bursts, int frames)
{
    const std::string name = text("received in bursts of %d, ", frames);
    sides.compare(name + "CPU, ns", [=](CLink& link) { return receiveBursts(link, bursts, frames).cpu; });
    sides.compare(name + "1000 frames/s", [=](CLink& link) { return 1e6 / receiveBursts(link, bursts, frames).wall; });
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // as most hosts, a process with threads: locks cost more there
    printHead({"frames of 8 data bytes", "raw", "Qt socket", "plugin", "virtualcan", "plugin / raw",
               "plugin / Qt socket", "virtualcan / plugin"});
    compareReceiving(CSides(EProtocol::eTcp, OTHER_PROCESSOR, rounds), 10, 8000);
    compareReceiving(CSides(EProtocol::eUdp, OTHER_PROCESSOR, rounds), 40, 200); // fits into any receive buffer
    for (const EProtocol protocol : {EProtocol::eTcp, EProtocol::eUdp}) {
        const CSides sides(protocol, HOST_PROCESSOR, rounds);
        sides.compare("sent, one per turn of the event loop, CPU, ns", send);
        sides.compare("round trip, us", roundTrip);
    }
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
