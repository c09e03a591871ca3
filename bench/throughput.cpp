// What the plugin costs a host from end to end, beside what a plain socket and what a bare Qt socket cost in the same
// run. Prints a table in Markdown. See docs/performance.md.
#include "bench/comparison.h"

#include <QCoreApplication>

#include <cstdio>
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

CSides sides(EProtocol protocol, int gatewayProcessor, int rounds)
{
    CSides result(protocol, gatewayProcessor, rounds);
    result.add<CRawLink>().add<CQtLink>().add<CPluginLink>();
    return result;
}

/// Bursts over TCP.
Costs receive(int rounds)
{
    return sides(EProtocol::eTcp, OTHER_PROCESSOR, rounds).measure([](CLink& link) {
        return receiveBursts(link, RECEIVE_BURSTS, RECEIVE_BURST);
    });
}

void compareReceiving(const CComparison& table, int rounds)
{
    const Costs tcp = receive(rounds);
    table.add("received over TCP, bursts of 8000, CPU, ns", cpuOf(tcp), RECEIVE_AIM);
    table.add("received over TCP, bursts of 8000, 1000 frames/s", ratesOf(tcp), {}, true);
    const Costs udp = sides(EProtocol::eUdp, OTHER_PROCESSOR, rounds).measure([](CLink& link) {
        return receiveBursts(link, DATAGRAM_BURSTS, DATAGRAM_BURST);
    });
    table.add("received over UDP, bursts of 200 datagrams, CPU, ns", cpuOf(udp), RECEIVE_AIM, true);
    table.add("received over UDP, bursts of 200 datagrams, 1000 frames/s", ratesOf(udp), {}, true);
}

void compareSending(const CComparison& table, const std::string& protocol, const CSides& sides)
{
    const auto cpu = [&sides](ESending how) {
        return cpuOf(sides.measure([how](CLink& link) { return sendBatches(link, how, SEND_BATCHES); }));
    };
    table.add("sent over " + protocol + ", nothing but the call, CPU, ns", cpu(ESending::eBare), SEND_AIM);
    table.add("sent over " + protocol + ", one each turn of the event loop, CPU, ns", cpu(ESending::eEachInATurn),
              SEND_AIM);
    if (protocol == "TCP") {
        table.add("sent over TCP, 100 joined where the side can join, CPU, ns", cpu(ESending::eBurst));
    }
}

void compareRoundTrips(const CComparison& table, const std::string& protocol, const CSides& sides)
{
    const auto times = sides.measure([](CLink& link) { return roundTrips(link, ROUND_TRIPS, 0); });
    table.add("round trip over " + protocol + ", p50, us", mediansOf(times), ROUND_TRIP_AIM, true);
    table.add("round trip over " + protocol + ", p99, us", quantilesOf(times, 0.99), {}, true);
    table.add("round trip over " + protocol + ", max, us", quantilesOf(times, 1.0), {}, true);
    const auto behind = sides.measure([](CLink& link) { return roundTrips(link, ROUND_TRIPS, 1); });
    table.add("the same right behind another message, p50, us", mediansOf(behind), {}, true);
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    const Costs singleThreaded = receive(rounds); // first: once there were two threads the locks cost what they cost
    std::thread([] {}).join();
    const CComparison table("frames of 8 data bytes; process with threads", {"raw", "Qt socket", "plugin"},
                            {{2, 0}, {2, 1}});
    compareReceiving(table, rounds);
    for (const auto& [name, protocol] : {std::pair{"TCP", EProtocol::eTcp}, std::pair{"UDP", EProtocol::eUdp}}) {
        const CSides both = sides(protocol, HOST_PROCESSOR, rounds);
        compareSending(table, name, both);
        compareRoundTrips(table, name, both);
    }
    table.add("received over TCP in a process that never had two threads", cpuOf(singleThreaded));
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
