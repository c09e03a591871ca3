// What many gateways in one process cost, each at a full bus of 1 Mbit/s: by the plugin, by plain QTcpSockets and by
// epoll alone. Prints tables in Markdown. See docs/performance.md.
#include "bench/busSenders.h"
#include "bench/gatewayProcess.h"
#include "bench/measuring.h"
#include "bench/receivers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <vector>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_TURNS = 3;
constexpr int HOST_PROCESSOR = 0;
constexpr int SENDER_PROCESSOR = 1;
constexpr int GATEWAYS[] = {1, 10, 100, 200};
constexpr int FULL_LOAD_GATEWAYS = 100; ///< the number for which there are aims

/// Fewer than this share of the frames that full buses carry, and the sending process had too little time.
constexpr double IN_PACE = 0.99;
/// Where an aim depends on them, such turns are taken again, up to so many times as often as turns are wanted.
constexpr int PATIENCE = 3;

/// What the three receivers got in a turn.
struct STurn {
    SReceived epoll;
    SReceived qTcpSocket;
    SReceived plugin;
};

double nsPerFrame(const SReceived& received)
{
    return received.cost.cpu / static_cast<double>(received.frames);
}

/// Share of the frames that full buses carry.
double delivered(const SReceived& received, int gateways)
{
    return static_cast<double>(received.frames) / (received.cost.wall / 1e9 * FRAMES_PER_SECOND * gateways);
}

/// One after the other, so that other load on the machine meets all of them.
STurn takeTurn(int gateways, int framesPerSegment)
{
    const auto receive = [&](EReceiver receiver) {
        const CBusSenders senders(gateways, framesPerSegment, SENDER_PROCESSOR);
        return receiveInProcess(receiver, senders.port(), gateways, HOST_PROCESSOR);
    };
    return {receive(EReceiver::eEpoll), receive(EReceiver::eQTcpSocket), receive(EReceiver::ePlugin)};
}

bool isInPace(const STurn& turn, int gateways)
{
    return delivered(turn.qTcpSocket, gateways) > IN_PACE && delivered(turn.plugin, gateways) > IN_PACE;
}

std::vector<STurn> takeTurns(int gateways, int framesPerSegment, int count, bool inPaceOnly)
{
    std::vector<STurn> turns;
    for (int spare = inPaceOnly ? count * (PATIENCE - 1) : 0; static_cast<int>(turns.size()) < count;) {
        const STurn turn = takeTurn(gateways, framesPerSegment);
        if (spare > 0 && !isInPace(turn, gateways)) {
            --spare;
        } else {
            turns.push_back(turn);
        }
    }
    return turns;
}

template <typename Value>
std::vector<double> valuesOf(const std::vector<STurn>& turns, Value&& value)
{
    std::vector<double> values;
    std::transform(turns.begin(), turns.end(), std::back_inserter(values), value);
    return values;
}

std::string judge(double ratio, std::uint64_t lost, double deliveredShare)
{
    const std::string aim = "<= 1.25, nothing lost";
    if (lost == 0 && deliveredShare < IN_PACE) {
        return aim + ", not measured: senders too slow";
    }
    return verdict(aim, ratio <= 1.25 && lost == 0);
}

void addRow(CTable& table, int gateways, const std::vector<STurn>& turns, bool hasAim)
{
    const auto epoll = valuesOf(turns, [](const STurn& turn) { return nsPerFrame(turn.epoll); });
    const auto qTcpSocket = valuesOf(turns, [](const STurn& turn) { return nsPerFrame(turn.qTcpSocket); });
    const auto plugin = valuesOf(turns, [](const STurn& turn) { return nsPerFrame(turn.plugin); });
    const double share =
        median(valuesOf(turns, [gateways](const STurn& turn) { return delivered(turn.plugin, gateways); }));
    const double busy =
        median(valuesOf(turns, [](const STurn& turn) { return turn.plugin.cost.cpu / turn.plugin.cost.wall; }));
    const double kib = median(valuesOf(turns, [](const STurn& turn) { return turn.plugin.residentKib; }));
    std::uint64_t lost = 0;
    for (const STurn& turn : turns) {
        lost += turn.plugin.lost;
    }
    const double ratio = medianRatio(plugin, qTcpSocket);
    table.add({std::to_string(gateways), figure(median(epoll)), figure(median(qTcpSocket)), figure(median(plugin)),
               figure(ratio), hasAim ? judge(ratio, lost, share) : "", figure(busy * 100), figure(share * 100),
               std::to_string(lost), figure(kib / gateways),
               share > IN_PACE ? figure(1e9 / (median(plugin) * FRAMES_PER_SECOND)) : ""});
}

void compare(int framesPerSegment, int count, int maxGateways)
{
    std::printf("\n%d to a segment:\n", framesPerSegment);
    CTable table({"gateways", "epoll, ns a frame", "QTcpSocket", "plugin", "plugin / QTcpSocket", "aim",
                  "plugin: % of a processor", "delivered, %", "lost", "KiB an interface", "full buses a processor"});
    for (const int gateways : GATEWAYS) {
        if (gateways > maxGateways) {
            break;
        }
        const bool hasAim = gateways == FULL_LOAD_GATEWAYS && framesPerSegment > 1;
        addRow(table, gateways, takeTurns(gateways, framesPerSegment, count, hasAim), hasAim);
    }
    table.print();
}
} // namespace

/// Arguments, for a shorter run: turns, and the largest number of gateways.
int main(int argc, char** argv)
{
    const int turns = argc > 1 ? std::atoi(argv[1]) : DEFAULT_TURNS;
    const int maxGateways = argc > 2 ? std::atoi(argv[2]) : *std::rbegin(GATEWAYS);
    try {
        compare(9, turns, maxGateways);
        compare(1, turns, maxGateways);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scale: %s\n", error.what());
        return 1;
    }
    std::printf("\n%d aims not met.\n", aimsMissed());
    return 0;
}
