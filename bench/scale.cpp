// What many gateways in one process cost, each at a full bus of 1 Mbit/s: by the plugin, by plain QTcpSockets and by
// epoll alone. Prints tables in Markdown. See docs/performance.md.
#include "bench/busSenders.h"
#include "bench/receivers.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_TURNS = 3;
constexpr int HOST_PROCESSOR = 0;
constexpr int SENDER_PROCESSOR = 1;
constexpr int GATEWAYS[] = {1, 10, 100, 200};
constexpr int FULL_LOAD_GATEWAYS = 100; ///< the number for which there are aims
constexpr SAim COST_AIM{SAim::eAtMost, 1.25};
constexpr double HEAP_LIMIT_KIB = 256; ///< an interface

/// Fewer than this share of the frames that full buses carry, and the sending process had too little time.
constexpr double IN_PACE = 0.99;
/// Where an aim depends on them, such turns are taken again, up to so many times as often as turns are wanted.
constexpr int PATIENCE = 3;

/// What was measured of one number of gateways, a value a turn.
struct STurns {
    Values epoll; ///< ns a frame
    Values qTcpSocket;
    Values plugin;
    // Of the plugin's process.
    Values busy;      ///< share of a processor
    Values delivered; ///< share of the frames that full buses carry
    Values heapKib;
    std::uint64_t lost = 0;
};

double nsPerFrame(const SReceived& received)
{
    return received.cost.cpu / static_cast<double>(received.frames);
}

double delivered(const SReceived& received, int gateways)
{
    return static_cast<double>(received.frames) / (received.cost.wall / 1e9 * FRAMES_PER_SECOND * gateways);
}

/// One receiver after the other, so that other load on the machine meets all of them.
STurns takeTurns(int gateways, int framesPerSegment, int count, bool inPaceOnly)
{
    const auto receive = [&](EReceiver receiver) {
        const CBusSenders senders(gateways, framesPerSegment, SENDER_PROCESSOR);
        return receiveInProcess(receiver, senders.port(), gateways, HOST_PROCESSOR);
    };
    STurns turns;
    for (int spare = inPaceOnly ? count * (PATIENCE - 1) : 0; static_cast<int>(turns.plugin.size()) < count;) {
        const SReceived epoll = receive(EReceiver::eEpoll);
        const SReceived qTcpSocket = receive(EReceiver::eQTcpSocket);
        const SReceived plugin = receive(EReceiver::ePlugin);
        if (spare > 0 && (delivered(qTcpSocket, gateways) <= IN_PACE || delivered(plugin, gateways) <= IN_PACE)) {
            --spare;
            continue;
        }
        turns.epoll.push_back(nsPerFrame(epoll));
        turns.qTcpSocket.push_back(nsPerFrame(qTcpSocket));
        turns.plugin.push_back(nsPerFrame(plugin));
        turns.busy.push_back(plugin.cost.cpu / plugin.cost.wall);
        turns.delivered.push_back(delivered(plugin, gateways));
        turns.heapKib.push_back(plugin.heapKib / gateways);
        turns.lost += plugin.lost;
    }
    return turns;
}

std::string judge(const STurns& turns)
{
    if (turns.lost > 0) {
        return verdict(std::string("nothing lost"), false);
    }
    if (median(turns.delivered) < IN_PACE) {
        return "not measured: senders too slow";
    }
    return verdict(COST_AIM, ratios(turns.plugin, turns.qTcpSocket)) + ", nothing lost";
}

void addRow(const CTable& table, int gateways, const STurns& turns, bool hasAim)
{
    const double kib = median(turns.heapKib);
    const bool inPace = median(turns.delivered) > IN_PACE;
    table.add({std::to_string(gateways), figure(median(turns.epoll)), figure(median(turns.qTcpSocket)),
               figure(median(turns.plugin)), spread(ratios(turns.plugin, turns.qTcpSocket)), hasAim ? judge(turns) : "",
               figure(median(turns.busy) * 100), figure(median(turns.delivered) * 100), figure(turns.lost),
               figure(kib) + " (" + verdict("< " + figure(HEAP_LIMIT_KIB), kib < HEAP_LIMIT_KIB) + ")",
               inPace ? figure(1e9 / (median(turns.plugin) * FRAMES_PER_SECOND)) : "", loadAverage()});
}

void compare(int framesPerSegment, int count, int maxGateways)
{
    std::printf("\n%d to a segment:\n", framesPerSegment);
    const CTable table({"gateways", "epoll, ns a frame", "QTcpSocket", "plugin", "plugin / QTcpSocket", "aim",
                        "plugin: % of a processor", "delivered, %", "lost", "heap an interface, KiB",
                        "full buses a processor", "load"});
    for (const int gateways : GATEWAYS) {
        if (gateways > maxGateways) {
            break;
        }
        const bool hasAim = gateways == FULL_LOAD_GATEWAYS && framesPerSegment > 1;
        addRow(table, gateways, takeTurns(gateways, framesPerSegment, count, hasAim), hasAim);
    }
}
} // namespace

/// Arguments, for a shorter run: turns, and the largest number of gateways.
int main(int argc, char** argv)
{
    const int turns = argc > 1 ? std::atoi(argv[1]) : DEFAULT_TURNS;
    const int maxGateways = argc > 2 ? std::atoi(argv[2]) : *std::rbegin(GATEWAYS);
    return exitCodeOf("scale", [&] {
        compare(9, turns, maxGateways);
        compare(1, turns, maxGateways);
        tellAimsMissed();
        return true;
    });
}
