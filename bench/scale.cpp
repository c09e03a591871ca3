// What many gateways in one process cost, each at a full bus of 1 Mbit/s: by the plugin, by plain QTcpSockets and by
// epoll alone. Prints tables in Markdown. See docs/performance.md.
#include "bench/busSenders.h"
#include "bench/gatewayProcess.h"
#include "bench/measuring.h"
#include "bench/receivers.h"

#include <cstdio>
#include <exception>
#include <map>

using namespace vexmor::Bench;

namespace
{
constexpr int ROUNDS = 3;
constexpr int HOST_PROCESSOR = 0;
constexpr int SENDER_PROCESSOR = 1;
constexpr int GATEWAYS[] = {1, 10, 100, 200};
constexpr int FULL_LOAD_GATEWAYS = 100; ///< the number for which there are aims

struct SRow {
    std::vector<double> nsPerFrame;
    std::vector<double> processorShare; ///< of one processor
    std::vector<double> delivered;      ///< of the frames that full buses carry
    std::vector<double> kibPerInterface;
    std::uint64_t lost = 0;
};

SReceived measureOnce(EReceiver receiver, int gateways, int framesPerSegment)
{
    const CBusSenders senders(gateways, framesPerSegment, SENDER_PROCESSOR);
    return receiveInProcess(receiver, senders.port(), gateways, HOST_PROCESSOR);
}

void measure(SRow& row, EReceiver receiver, int gateways, int framesPerSegment)
{
    const SReceived received = measureOnce(receiver, gateways, framesPerSegment);
    const double frames = static_cast<double>(received.frames);
    row.nsPerFrame.push_back(received.cost.cpu / frames);
    row.processorShare.push_back(received.cost.cpu / received.cost.wall * 100);
    row.delivered.push_back(frames / (received.cost.wall / 1e9 * FRAMES_PER_SECOND * gateways) * 100);
    row.kibPerInterface.push_back(received.residentKib / gateways);
    row.lost += received.lost;
}

/// The three take turns, so that other load on the machine meets all of them.
void compare(int framesPerSegment)
{
    std::printf("\n%d frame(s) a segment:\n", framesPerSegment);
    CTable table({"gateways", "epoll, ns", "QTcpSocket, ns", "plugin, ns", "plugin / QTcpSocket", "aim", "processor, %",
                  "delivered, %", "lost", "KiB an interface", "full buses a processor"});
    for (const int gateways : GATEWAYS) {
        std::map<EReceiver, SRow> rows;
        for (int round = 0; round < ROUNDS; ++round) {
            for (const EReceiver receiver : {EReceiver::eEpoll, EReceiver::eQTcpSocket, EReceiver::ePlugin}) {
                measure(rows[receiver], receiver, gateways, framesPerSegment);
            }
        }
        const SRow& plugin = rows[EReceiver::ePlugin];
        const double nsPerFrame = median(plugin.nsPerFrame);
        const double ratio = medianRatio(plugin.nsPerFrame, rows[EReceiver::eQTcpSocket].nsPerFrame);
        const bool nothingLost = plugin.lost == 0 && median(plugin.delivered) > 99;
        const bool hasAim = gateways == FULL_LOAD_GATEWAYS && framesPerSegment > 1;
        table.add({std::to_string(gateways), figure(median(rows[EReceiver::eEpoll].nsPerFrame)),
                   figure(median(rows[EReceiver::eQTcpSocket].nsPerFrame)), figure(nsPerFrame), figure(ratio),
                   hasAim ? verdict("<= 1.25, none lost", ratio <= 1.25 && nothingLost) : "",
                   figure(median(plugin.processorShare)), figure(median(plugin.delivered)), std::to_string(plugin.lost),
                   figure(median(plugin.kibPerInterface)), figure(1e9 / (nsPerFrame * FRAMES_PER_SECOND))});
    }
    table.print();
}
} // namespace

int main()
{
    try {
        compare(9);
        compare(1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scale: %s\n", error.what());
        return 1;
    }
    std::printf("\n%d aims not met.\n", aimsMissed());
    return 0;
}
