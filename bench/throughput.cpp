// What the plugin costs a host from end to end, beside what a plain socket and what a bare Qt socket cost in the same
// run. Prints a table in Markdown. See docs/performance.md.
#include "bench/comparison.h"
#include "bench/processes.h"

#include <QCoreApplication>

#include <cstdlib>
#include <thread>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_ROUNDS = 25; ///< measured, after one that warms up
// What a round does.
constexpr int RECEIVE_BURST = 8000;
constexpr int RECEIVE_BURSTS = 10;
constexpr int DATAGRAM_BURST = 200; ///< what a socket's receive buffer takes in any case
constexpr int DATAGRAM_BURSTS = 40;
constexpr int SEND_BATCHES = 20;
constexpr int ROUND_TRIPS = 200;

constexpr SAim RECEIVE_AIM{SAim::eAtMost, 3.2};
constexpr SAim SEND_AIM{SAim::eAtMost, 1.3};
constexpr SAim ROUND_TRIP_AIM{SAim::eAtMost, 1.4};
constexpr bool NEEDS_QUIET = true;

CSides sides(EProtocol protocol, int gatewayProcessor, int rounds)
{
    CSides result(protocol, gatewayProcessor, rounds);
    result.add(makeRawLink).add(makeQtLink).add(makePluginLink);
    return result;
}

double receive(CLink& link)
{
    return receiveBursts(link, RECEIVE_BURSTS, RECEIVE_BURST).cpu;
}

void compareReceiving(const CComparison& table, const CSides& tcp, const CSides& udp)
{
    const auto perSecond = [](const SCost& cost) { return 1e6 / cost.wall; };
    table.add("received over TCP, bursts of 8000, CPU, ns", tcp.measure(receive), RECEIVE_AIM);
    table.add("received over TCP, bursts of 8000, 1000 frames/s",
              tcp.measure([&](CLink& link) { return perSecond(receiveBursts(link, RECEIVE_BURSTS, RECEIVE_BURST)); }),
              {}, NEEDS_QUIET);
    table.add("received over UDP, bursts of 200 datagrams, CPU, ns",
              udp.measure([](CLink& link) { return receiveBursts(link, DATAGRAM_BURSTS, DATAGRAM_BURST).cpu; }),
              RECEIVE_AIM, NEEDS_QUIET);
    table.add("received over UDP, bursts of 200 datagrams, 1000 frames/s",
              udp.measure([&](CLink& link) { return perSecond(receiveBursts(link, DATAGRAM_BURSTS, DATAGRAM_BURST)); }),
              {}, NEEDS_QUIET);
}

void compareSending(const CComparison& table, const std::string& protocol, const CSides& sides)
{
    const auto sent = [&](ESending how) {
        return sides.measure([how](CLink& link) { return sendBatches(link, how, SEND_BATCHES); });
    };
    table.add("sent over " + protocol + ", nothing but the call, CPU, ns", sent(ESending::eBare), SEND_AIM);
    table.add("sent over " + protocol + ", one each turn of the event loop, CPU, ns", sent(ESending::eEachInATurn),
              SEND_AIM);
    if (protocol == "TCP") {
        table.add("sent over TCP, 100 joined where the side can join, CPU, ns", sent(ESending::eBurst));
    }
}

void compareRoundTrips(const CComparison& table, const std::string& protocol, const CSides& sides)
{
    const auto trips = [&](double share, int messagesBefore) {
        return sides.measure([=](CLink& link) { return roundTrip(link, share, ROUND_TRIPS, messagesBefore); });
    };
    table.add("round trip over " + protocol + ", p50, us", trips(0.5, 0), ROUND_TRIP_AIM, NEEDS_QUIET);
    table.add("round trip over " + protocol + ", p99, us", trips(0.99, 0), {}, NEEDS_QUIET);
    table.add("the same right behind another message, p50, us", trips(0.5, 1), {}, NEEDS_QUIET);
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    // First: once there were two threads the locks cost what they cost.
    const Figures singleThreaded = sides(EProtocol::eTcp, OTHER_PROCESSOR, rounds).measure(receive);
    std::thread([] {}).join();
    const CComparison table({"frames of 8 data bytes; process with threads", "raw", "Qt socket", "plugin",
                             "plugin / raw", "plugin / Qt socket", "aim", "load"},
                            {{2, 0}, {2, 1}});
    compareReceiving(table, sides(EProtocol::eTcp, OTHER_PROCESSOR, rounds),
                     sides(EProtocol::eUdp, OTHER_PROCESSOR, rounds));
    for (const auto& [name, protocol] : {std::pair{"TCP", EProtocol::eTcp}, std::pair{"UDP", EProtocol::eUdp}}) {
        const CSides all = sides(protocol, HOST_PROCESSOR, rounds);
        compareSending(table, name, all);
        compareRoundTrips(table, name, all);
    }
    table.add("received over TCP, process that never had two threads, CPU, ns", singleThreaded);
}
} // namespace

/// throughput [ROUNDS]: fewer than 25 show that it works, not what it costs.
int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return exitCodeOf("throughput", [&] {
        run(argc > 1 ? std::max(std::atoi(argv[1]), 1) : DEFAULT_ROUNDS);
        tellAimsMissed();
        return true;
    });
}
