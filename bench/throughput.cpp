// What the plugin costs a host from end to end, beside what a plain socket costs in the same run, and beside what Qt
// SerialBus and python-can cost. Prints tables in Markdown. See docs/performance.md.
#include "bench/gatewayProcess.h"
#include "bench/heap.h"
#include "bench/hostApplication.h"
#include "bench/link.h"
#include "bench/measuring.h"
#include "bench/pluginLink.h"
#include "bench/pythonLink.h"
#include "bench/qtLink.h"
#include "bench/rawLink.h"
#include "bench/virtualcanLink.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <thread>

using namespace vexmor::Bench;

namespace
{
int s_rounds = 25; ///< measured, after one that warms up
constexpr int RECEIVE_BURST = 8000;
constexpr int RECEIVE_BURSTS = 10;  ///< a round
constexpr int DATAGRAM_BURST = 200; ///< what a socket's receive buffer takes in any case
constexpr int DATAGRAM_BURSTS = 40; ///< a round
constexpr int SEND_BATCH = 100;     ///< messages between two waits for the gateway
constexpr int SEND_BATCHES = 20;    ///< a round
constexpr int ROUND_TRIPS = 200;    ///< a round
constexpr int STALL_TRIPS = 5;      ///< a round; up to 40 ms each
// The peers need longer, hence fewer a round.
constexpr int PEER_BURSTS = 1;
constexpr int PYTHON_BURST = 2000;
constexpr int PEER_BATCHES = 4;
constexpr int PEER_ROUND_TRIPS = 40;

constexpr int HOST_PROCESSOR = 0;
constexpr int OTHER_PROCESSOR = 1;

constexpr double VIRTUALCAN_AIM = 30.0; ///< times what the plugin costs
constexpr double NO_AIM = 0.0;

/// The links to be compared, each with a gateway process of its own on the same processor.
struct SLinks {
    SLinks(EProtocol protocol, int gatewayProcessor)
        : rawGateway(protocol, gatewayProcessor),
          pluginGateway(protocol, gatewayProcessor),
          raw(protocol, rawGateway.port()),
          plugin(protocol, pluginGateway.port())
    {
        plugin.open();
    }
    ~SLinks() { plugin.close(); }

    CGatewayProcess rawGateway;
    CGatewayProcess pluginGateway;
    CRawLink raw;
    CPluginLink plugin;
};

struct SPeers {
    explicit SPeers(int gatewayProcessor)
        : virtualcanGateway(EProtocol::eTcp, gatewayProcessor, VIRTUALCAN_LANGUAGE),
          pythonGateway(EProtocol::eTcp, gatewayProcessor, SOCKETCAND_LANGUAGE),
          virtualcan(virtualcanGateway.port()),
          python(pythonGateway.port(), HOST_PROCESSOR)
    {
    }

    CGatewayProcess virtualcanGateway;
    CGatewayProcess pythonGateway;
    CVirtualcanLink virtualcan;
    CPythonLink python;
};

/// One job done by each side; a call is a round and gives the cost of a frame. The peers may be left out.
using Job = std::function<SCost()>;
struct SJobs {
    Job raw;
    Job plugin;
    Job virtualcan;
    Job python;
};

/// The values of one side, a value a round.
using Values = std::vector<double>;

class CComparison
{
public:
    CComparison()
        : m_table({"frames of 8 data bytes", "raw", "plugin", "plugin / raw", "aim", "virtualcan",
                   "virtualcan / plugin", "python-can", "python-can / plugin"})
    {
    }

    /// The sides take turns. Two rows: what a frame costs, and how many there are in a second. An aim of 0 stands for
    /// none.
    void measure(const std::string& name, double rawAim, double virtualcanAim, const SJobs& jobs)
    {
        const Job* const sides[] = {&jobs.raw, &jobs.plugin, &jobs.virtualcan, &jobs.python};
        std::array<Values, 4> cpu;
        std::array<Values, 4> rate;
        for (int round = 0; round <= s_rounds; ++round) {
            for (std::size_t side = 0; side < std::size(sides); ++side) {
                if (!*sides[side]) {
                    continue;
                }
                const SCost cost = (*sides[side])();
                if (round > 0) {
                    cpu[side].push_back(cost.cpu);
                    rate[side].push_back(1e6 / cost.wall);
                }
            }
        }
        addRow(name + ", CPU, ns", cpu, rawAim, virtualcanAim);
        addRow(name + ", 1000 frames/s", rate, NO_AIM, NO_AIM);
    }

    /// A row of a quantile of times.
    void addQuantile(const std::string& name, const std::array<Values, 4>& times, double share, double rawAim)
    {
        std::array<Values, 4> quantiles;
        std::transform(times.begin(), times.end(), quantiles.begin(), [share](const Values& values) {
            return values.empty() ? Values() : Values{quantile(values, share)};
        });
        addRow(name, quantiles, rawAim, NO_AIM);
    }

    void print() const { m_table.print(); }

private:
    void addRow(const std::string& name, const std::array<Values, 4>& sides, double rawAim, double virtualcanAim)
    {
        const auto& [raw, plugin, virtualcan, python] = sides;
        const double overRaw = medianRatio(plugin, raw);
        std::vector<std::string> cells{name, figure(median(raw)), figure(median(plugin)), figure(overRaw),
                                       rawAim > 0 ? verdict("<= " + figure(rawAim), overRaw <= rawAim) : ""};
        for (const Values* const peer : {&virtualcan, &python}) {
            const double overPlugin = medianRatio(*peer, plugin);
            cells.push_back(peer->empty() ? "" : figure(median(*peer)));
            cells.push_back(peer->empty() ? "" : figure(overPlugin));
            if (peer == &virtualcan && virtualcanAim > 0) {
                cells.back() += " (" + verdict(">= " + figure(virtualcanAim), overPlugin >= virtualcanAim) + ")";
            }
        }
        m_table.add(cells);
    }

    CTable m_table;
};

/// Bursts of `frames`, and what a frame costs.
template <typename Link>
SCost receiveBursts(Link& link, int bursts, int frames)
{
    return costOf([&] { repeat(bursts, [&] { receiveBurst(link, frames); }); }) / (bursts * frames);
}

/// What a message costs to send, without the time in which the gateway catches up.
template <typename Link, typename SendBatch>
SCost sendBatches(Link& link, SendBatch&& sendBatch, int batches = SEND_BATCHES)
{
    SCost total;
    repeat(batches, [&] {
        roundTrip(link); // until the gateway has read everything
        total += costOf(sendBatch);
    });
    return total / (batches * SEND_BATCH);
}

void measureBursts(CComparison& table, const std::string& name, double aim, SLinks& tcp, SPeers* peers)
{
    SJobs jobs{[&] { return receiveBursts(tcp.raw, RECEIVE_BURSTS, RECEIVE_BURST); },
               [&] { return receiveBursts(tcp.plugin, RECEIVE_BURSTS, RECEIVE_BURST); },
               {},
               {}};
    if (peers != nullptr) {
        jobs.virtualcan = [peers] { return receiveBursts(peers->virtualcan, PEER_BURSTS, RECEIVE_BURST); };
        jobs.python = [peers] { return peers->python.receive(PEER_BURSTS, PYTHON_BURST); };
    }
    table.measure(name, aim, peers != nullptr ? VIRTUALCAN_AIM : NO_AIM, jobs);
}

void measureReceiving(CComparison& table)
{
    SLinks tcp(EProtocol::eTcp, OTHER_PROCESSOR);
    SLinks udp(EProtocol::eUdp, OTHER_PROCESSOR);
    SPeers peers(OTHER_PROCESSOR);
    measureBursts(table, "received over TCP, bursts of 8000", 4.0, tcp, &peers);
    table.measure("received over UDP, bursts of 200 datagrams", 4.0, NO_AIM,
                  {[&] { return receiveBursts(udp.raw, DATAGRAM_BURSTS, DATAGRAM_BURST); },
                   [&] { return receiveBursts(udp.plugin, DATAGRAM_BURSTS, DATAGRAM_BURST); },
                   {},
                   {}});
}

/// The locks of the queue cost more in a process with several threads, and once there were two it stays so: for the
/// end.
void measureReceivingBesideAnotherThread(CComparison& table)
{
    std::thread([] {}).join();
    SLinks tcp(EProtocol::eTcp, OTHER_PROCESSOR);
    measureBursts(table, "received over TCP, process with a second thread", NO_AIM, tcp, nullptr);
}

const SMessage SWALLOWED{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};

template <typename Link>
void sendEachInATurn(Link& link)
{
    repeat(SEND_BATCH, [&link] {
        link.send(SWALLOWED);
        QCoreApplication::processEvents();
    });
}

template <typename Link>
void sendAllInATurn(Link& link)
{
    link.sendJoined(SWALLOWED, SEND_BATCH);
    QCoreApplication::processEvents();
}

/// The peers take part when there are any.
void measureSending(CComparison& table, const std::string& protocol, SLinks& links, SPeers* peers)
{
    SJobs each{[&] { return sendBatches(links.raw, [&] { sendEachInATurn(links.raw); }); },
               [&] { return sendBatches(links.plugin, [&] { sendEachInATurn(links.plugin); }); },
               {},
               {}};
    SJobs together{
        [&] { return sendBatches(links.raw, [&] { repeat(SEND_BATCH, [&] { links.raw.send(SWALLOWED); }); }); },
        [&] { return sendBatches(links.plugin, [&] { sendAllInATurn(links.plugin); }); },
        {},
        {}};
    if (peers != nullptr) {
        each.virtualcan = [peers] {
            return sendBatches(
                peers->virtualcan, [peers] { sendEachInATurn(peers->virtualcan); }, PEER_BATCHES);
        };
        together.virtualcan = [peers] {
            return sendBatches(
                peers->virtualcan, [peers] { sendAllInATurn(peers->virtualcan); }, PEER_BATCHES);
        };
        together.python = [peers] { return peers->python.send(PEER_BATCHES, SEND_BATCH); };
    }
    table.measure("sent over " + protocol + ", each in a turn of the event loop", 1.3, NO_AIM, each);
    table.measure("sent over " + protocol + ", 100 in a turn", 1.3, NO_AIM, together);
    SJobs joined{[&] { return sendBatches(links.raw, [&] { links.raw.sendJoined(SWALLOWED, SEND_BATCH); }); },
                 together.plugin,
                 {},
                 {}};
    table.measure("sent over " + protocol + ", 100 in a turn, raw: in one call", NO_AIM, NO_AIM, joined);
}

/// Round trips, each with so many messages sent before it that are not answered.
template <typename Link>
void timeRoundTrips(Link& link, int count, int messagesBefore, Values& into)
{
    repeat(count, [&] {
        const SCost cost = costOf([&] {
            repeat(messagesBefore, [&] { link.send(SWALLOWED); });
            roundTrip(link);
        });
        into.push_back(cost.wall / 1000);
    });
}

std::array<Values, 4> timeRoundTrips(SLinks& links, SPeers* peers, int count, int peerCount, int messagesBefore)
{
    std::array<Values, 4> times;
    auto& [raw, plugin, virtualcan, python] = times;
    for (int round = 0; round <= s_rounds; ++round) {
        timeRoundTrips(links.raw, count, messagesBefore, raw);
        timeRoundTrips(links.plugin, count, messagesBefore, plugin);
        if (peers != nullptr) {
            timeRoundTrips(peers->virtualcan, peerCount, messagesBefore, virtualcan);
            for (const double time : peers->python.roundTrips(peerCount, messagesBefore)) {
                python.push_back(time / 1000);
            }
        }
        if (round == 0) { // it only warmed up
            times = {};
        }
    }
    return times;
}

void measureRoundTrips(CComparison& table, const std::string& protocol, SLinks& links, SPeers* peers)
{
    const auto times = timeRoundTrips(links, peers, ROUND_TRIPS, PEER_ROUND_TRIPS, 0);
    table.addQuantile("round trip over " + protocol + ", p50, us", times, 0.5, 1.4);
    table.addQuantile("round trip over " + protocol + ", p99, us", times, 0.99, NO_AIM);
    table.addQuantile("round trip over " + protocol + ", max, us", times, 1.0, NO_AIM);
}

/// How much of a round trip Qt takes, whatever is done with it.
void measureBareQt(CComparison& table, const std::string& protocolName, EProtocol protocol, SLinks& links)
{
    const CGatewayProcess gateway(protocol, HOST_PROCESSOR);
    CQtLink bare(protocol, gateway.port());
    std::array<Values, 4> times;
    for (int round = 0; round < s_rounds; ++round) {
        timeRoundTrips(bare, ROUND_TRIPS, 0, times[0]);
        timeRoundTrips(links.plugin, ROUND_TRIPS, 0, times[1]);
    }
    table.addQuantile("round trip over " + protocolName + ", p50, us; raw: a bare Qt socket", times, 0.5, NO_AIM);
}

/// Small messages that wait for the acknowledgement of the one before.
void measureStall(CComparison& table, SLinks& tcp, SPeers& peers)
{
    const auto times = timeRoundTrips(tcp, &peers, STALL_TRIPS, STALL_TRIPS, 1);
    table.addQuantile("the same right behind another message, p50, us", times, 0.5, NO_AIM);
}

void run()
{
    stayOn(HOST_PROCESSOR);
    CComparison comparison;
    measureReceiving(comparison);
    {
        SLinks tcp(EProtocol::eTcp, HOST_PROCESSOR);
        SLinks udp(EProtocol::eUdp, HOST_PROCESSOR);
        SPeers peers(HOST_PROCESSOR);
        measureSending(comparison, "TCP", tcp, &peers);
        measureSending(comparison, "UDP", udp, nullptr);
        measureRoundTrips(comparison, "TCP", tcp, &peers);
        measureStall(comparison, tcp, peers);
        measureBareQt(comparison, "TCP", EProtocol::eTcp, tcp);
        measureRoundTrips(comparison, "UDP", udp, nullptr);
        measureBareQt(comparison, "UDP", EProtocol::eUdp, udp);
    }
    measureHeap(HOST_PROCESSOR);
    measureReceivingBesideAnotherThread(comparison);
    comparison.print();
}
} // namespace

/// throughput [ROUNDS]: fewer than 25 show that it works, not what it costs.
int main(int argc, char** argv)
{
    if (argc > 1) {
        s_rounds = std::max(std::atoi(argv[1]), 1);
    }
    // Without it virtualcan, which asks for the local time with each frame, would have the C library look for a change
    // of the time zone's file each time: the comparison would flatter the plugin.
    setenv("TZ", "UTC", 0);
    setenv("QT_LOGGING_RULES", "qt.canbus.*=false", 0); // it tells that it is no server
    std::signal(SIGPIPE, SIG_IGN);                      // a peer that failed is told by what it did not answer
    const CHostApplication application;
    try {
        run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "throughput: %s\n", error.what());
        return 1;
    }
    std::printf("\n%d aims not met.\n", aimsMissed());
    return 0;
}
