// What the plugin costs a host from end to end, beside what a plain socket costs in the same run. See
// docs/performance.md.
#include "bench/allocations.h"
#include "bench/gatewayProcess.h"
#include "bench/pluginLink.h"
#include "bench/rawLink.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <thread>
#include <vector>

using namespace vexmor::Bench;

namespace
{
constexpr int ROUNDS = 25; ///< measured, after one that warms up
constexpr int RECEIVE_BURST = 8000;
constexpr int RECEIVE_BURSTS = 10;      ///< a round
constexpr int DATAGRAM_BURST = 200;     ///< what a socket's receive buffer takes in any case
constexpr int DATAGRAM_BURSTS = 40;     ///< a round
constexpr int SEND_BATCH = 100;         ///< messages between two waits for the gateway
constexpr int SEND_BATCHES = 20;        ///< a round
constexpr int ROUND_TRIPS = 200;        ///< a round
constexpr double STALL_LIMIT_MS = 40.0; ///< what delayed acknowledgements cost small frames that wait for them
constexpr double OPEN_LIMIT_KIB = 256.0;

int s_missed = 0;

double nanoseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// CPU time of this process, or time on the wall, that an action takes.
template <typename Action>
double spent(clockid_t clock, Action&& action)
{
    const double start = nanoseconds(clock);
    action();
    return nanoseconds(clock) - start;
}

template <typename Action>
double cpuTime(Action&& action)
{
    return spent(CLOCK_PROCESS_CPUTIME_ID, action);
}

double quantile(std::vector<double> values, double share)
{
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

double median(const std::vector<double>& values)
{
    return quantile(values, 0.5);
}

void title(const char* text, const char* unit)
{
    std::printf("\n%-58s %9s %9s %7s  aim\n%-58s %9s %9s\n", text, "raw", "plugin", "ratio", "", unit, unit);
}

/// "met" or "NOT MET", which is remembered for the end.
const char* verdict(bool met)
{
    s_missed += met ? 0 : 1;
    return met ? "met" : "NOT MET";
}

/// One line of a comparison; an aim of 0 stands for none.
void compare(const char* name, double raw, double plugin, double ratio, double aim)
{
    std::printf("  %-56s %9.1f %9.1f %7.2f", name, raw, plugin, ratio);
    if (aim > 0) {
        std::printf("  <= %.1f %s", aim, verdict(ratio <= aim));
    }
    std::printf("\n");
}

/// The same job done by a plain socket and by the plugin in turn; each gives the time it took. Prints medians.
template <typename Raw, typename Plugin>
void measure(const char* name, int framesPerRound, double aim, Raw&& raw, Plugin&& plugin)
{
    std::vector<double> raws;
    std::vector<double> plugins;
    std::vector<double> ratios;
    for (int round = 0; round <= ROUNDS; ++round) {
        const double rawTime = raw() / framesPerRound;
        const double pluginTime = plugin() / framesPerRound;
        if (round > 0) {
            raws.push_back(rawTime);
            plugins.push_back(pluginTime);
            ratios.push_back(pluginTime / rawTime);
        }
    }
    compare(name, median(raws), median(plugins), median(ratios), aim);
}

/// Two gateways, one for a plain socket and one for the plugin, and the links to them.
struct SLinks {
    SLinks(EProtocol protocol, int gatewayProcessor, bool bindAny = false)
        : rawGateway(protocol, gatewayProcessor),
          pluginGateway(protocol, gatewayProcessor),
          raw(protocol, rawGateway.port()),
          plugin(protocol, pluginGateway.port(), bindAny)
    {
        plugin.open();
    }
    ~SLinks() { plugin.close(); }

    CGatewayProcess rawGateway;
    CGatewayProcess pluginGateway;
    CRawLink raw;
    CPluginLink plugin;
};

template <typename Link>
void receiveBursts(Link& link, int bursts, int frames)
{
    for (int burst = 0; burst < bursts; ++burst) {
        link.send(burstRequest(frames));
        link.receive(frames);
    }
}

/// Waits until the gateway has read everything that was sent.
template <typename Link>
void settle(Link& link)
{
    link.send({ID_ECHO, {}});
    link.receive(1);
}

/// The time that a batch of sends takes, without the time in which the gateway catches up.
template <typename Link, typename SendBatch>
double sendBatches(Link& link, SendBatch&& sendBatch)
{
    double total = 0;
    for (int batch = 0; batch < SEND_BATCHES; ++batch) {
        settle(link);
        total += cpuTime(sendBatch);
    }
    return total;
}

template <typename Link>
void roundTrip(Link& link)
{
    link.send({ID_ECHO, {}});
    link.receive(1);
}

void measureBursts(SLinks& tcp, double aim)
{
    measure(
        "TCP, bursts of 8000 frames", RECEIVE_BURSTS * RECEIVE_BURST, aim,
        [&] { return cpuTime([&] { receiveBursts(tcp.raw, RECEIVE_BURSTS, RECEIVE_BURST); }); },
        [&] { return cpuTime([&] { receiveBursts(tcp.plugin, RECEIVE_BURSTS, RECEIVE_BURST); }); });
}

void measureReceiving(SLinks& tcp, SLinks& udp)
{
    title("RECEIVE, ends on two processors, CPU time a frame", "ns");
    measureBursts(tcp, 4.0);
    measure(
        "UDP, bursts of 200 datagrams of a frame", DATAGRAM_BURSTS * DATAGRAM_BURST, 4.0,
        [&] { return cpuTime([&] { receiveBursts(udp.raw, DATAGRAM_BURSTS, DATAGRAM_BURST); }); },
        [&] { return cpuTime([&] { receiveBursts(udp.plugin, DATAGRAM_BURSTS, DATAGRAM_BURST); }); });
}

/// The locks of the queue cost more in a process with several threads, and once there were two it stays so: for the
/// end.
void measureReceivingBesideAnotherThread()
{
    std::thread([] {}).join();
    title("RECEIVE in a process that has had a second thread", "ns");
    SLinks tcp(EProtocol::eTcp, 1);
    measureBursts(tcp, 0);
}

void eventLoopTurn()
{
    QCoreApplication::processEvents();
}

template <typename Action>
void repeat(int times, Action&& action)
{
    for (int i = 0; i < times; ++i) {
        action();
    }
}

void measureSending(SLinks& links, const char* protocol)
{
    const SMessage message{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};
    const int frames = SEND_BATCHES * SEND_BATCH;
    std::vector<char> name(80);
    const auto row = [&](const char* text, double aim, auto&& raw, auto&& plugin) {
        std::snprintf(name.data(), name.size(), "%s, %s", protocol, text);
        measure(
            name.data(), frames, aim, [&] { return sendBatches(links.raw, raw); },
            [&] { return sendBatches(links.plugin, plugin); });
    };
    const auto eachInATurn = [&message](auto& link) {
        repeat(SEND_BATCH, [&] {
            link.send(message);
            eventLoopTurn();
        });
    };
    const auto rawEach = [&] { repeat(SEND_BATCH, [&] { links.raw.send(message); }); };
    const auto pluginBurst = [&] {
        links.plugin.sendJoined(message, SEND_BATCH);
        eventLoopTurn();
    };

    row(
        "each in a turn of the event loop", 1.3, [&] { eachInATurn(links.raw); }, [&] { eachInATurn(links.plugin); });
    row("the same, raw without an event loop", 0, rawEach, [&] { eachInATurn(links.plugin); });
    row("100 in a turn, raw one by one", 1.3, rawEach, pluginBurst);
    row(
        "100 in a turn, raw joined", 0, [&] { links.raw.sendJoined(message, SEND_BATCH); }, pluginBurst);
}

void measureRoundTrips(SLinks& links, const char* protocol)
{
    std::vector<double> raws;
    std::vector<double> plugins;
    for (int round = 0; round <= ROUNDS; ++round) {
        const auto times = [round](auto& link, std::vector<double>& into) {
            repeat(ROUND_TRIPS, [&] {
                const double time = spent(CLOCK_MONOTONIC, [&] { roundTrip(link); }) / 1000;
                if (round > 0) {
                    into.push_back(time);
                }
            });
        };
        times(links.raw, raws);
        times(links.plugin, plugins);
    }
    for (const auto& [name, share, aim] : {std::tuple{"p50", 0.5, 1.4}, std::tuple{"p99", 0.99, 0.0}}) {
        char text[80];
        std::snprintf(text, sizeof text, "%s, %s", protocol, name);
        const double raw = quantile(raws, share);
        const double plugin = quantile(plugins, share);
        compare(text, raw, plugin, plugin / raw, aim);
    }
}

void countAllocations(SLinks& links, const char* protocol, int bursts, int burst)
{
    const SMessage message{ID_SWALLOW, {}};
    const auto row = [protocol](const char* name, int frames, auto&& action) {
        action(); // warms up
        const std::uint64_t before = allocations();
        action();
        const double count = static_cast<double>(allocations() - before) / frames;
        char text[80];
        std::snprintf(text, sizeof text, "%s, %s", protocol, name);
        std::printf("  %-56s %9s %9.3f %7s  none %s\n", text, "", count, "", verdict(count < 0.01));
    };
    row("received in bursts", bursts * burst, [&] { receiveBursts(links.plugin, bursts, burst); });
    row("sent, each in a turn of the event loop", SEND_BATCH, [&] {
        repeat(SEND_BATCH, [&] {
            links.plugin.send(message);
            eventLoopTurn();
        });
    });
    settle(links.plugin);
    row("sent, 100 in a turn", SEND_BATCH, [&] { links.plugin.sendJoined(message, SEND_BATCH); });
    settle(links.plugin);
    row("sent and received one by one", ROUND_TRIPS, [&] { repeat(ROUND_TRIPS, [&] { roundTrip(links.plugin); }); });
}

void measureStall(SLinks& tcp)
{
    double longest = 0;
    repeat(20, [&] {
        longest = std::max(longest, spent(CLOCK_MONOTONIC, [&] {
                                        tcp.plugin.send({ID_SWALLOW, {}});
                                        roundTrip(tcp.plugin);
                                    }) / 1e6);
    });
    std::printf("  %-56s %9s %9.2f %7s  < %.0f ms %s\n", "TCP, two messages, the second answered: longest of 20, ms",
                "", longest, "", STALL_LIMIT_MS, verdict(longest < STALL_LIMIT_MS));
}

void measureMemory(EProtocol protocol, const char* name)
{
    CGatewayProcess gateway(protocol, 0);
    CPluginLink link(protocol, gateway.port());
    std::vector<double> sizes;
    repeat(3, [&] {
        const std::size_t closed = heapInUse();
        link.open();
        receiveBursts(link, 1, DATAGRAM_BURST);
        sizes.push_back((static_cast<double>(heapInUse()) - static_cast<double>(closed)) / 1024);
        link.close();
    });
    std::printf("  %s, open over closed, KiB %-31s %9s %9.1f %7s  < %.0f %s\n", name, "", "", median(sizes), "",
                OPEN_LIMIT_KIB, verdict(median(sizes) < OPEN_LIMIT_KIB));
}

void run()
{
    stayOn(0);
    {
        SLinks tcp(EProtocol::eTcp, 1);
        SLinks udp(EProtocol::eUdp, 1);
        measureReceiving(tcp, udp);
    }
    SLinks tcp(EProtocol::eTcp, 0);
    SLinks udp(EProtocol::eUdp, 0);
    title("SEND, both ends on one processor, CPU time a frame", "ns");
    measureSending(tcp, "TCP");
    measureSending(udp, "UDP");
    title("ROUND TRIP of one message, both ends on one processor", "us");
    measureRoundTrips(tcp, "TCP");
    measureRoundTrips(udp, "UDP");
    measureStall(tcp);
    title("HEAP, allocations a frame", "");
    countAllocations(tcp, "TCP", RECEIVE_BURSTS, RECEIVE_BURST);
    countAllocations(udp, "UDP", DATAGRAM_BURSTS, DATAGRAM_BURST);
    SLinks udpAny(EProtocol::eUdp, 0, true);
    countAllocations(udpAny, "UDP bound to any", DATAGRAM_BURSTS, DATAGRAM_BURST);
    measureMemory(EProtocol::eTcp, "TCP");
    measureMemory(EProtocol::eUdp, "UDP");
    measureReceivingBesideAnotherThread();
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("bench"));
    QCoreApplication::setApplicationName(QStringLiteral("throughput"));
    const QTemporaryDir settings; // so that nobody's stored interfaces are touched
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings.path());
    try {
        run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "throughput: %s\n", error.what());
        return 1;
    }
    std::printf("\n%d aims not met\n", s_missed);
    return 0;
}
