#include "bench/heap.h"

#include "bench/allocations.h"
#include "bench/gatewayProcess.h"
#include "bench/link.h"
#include "bench/measuring.h"
#include "bench/pluginLink.h"

#include <QCoreApplication>

namespace vexmor::Bench
{
namespace
{
constexpr int FRAMES = 1000; ///< of each count
constexpr int BURST = 200;   ///< what a datagram socket's receive buffer takes in any case
constexpr double FEW = 0.01; ///< allocations a frame: a burst may make the socket's buffer grow
constexpr double OPEN_LIMIT_KIB = 256;

/// Of the second run of an action that handles FRAMES frames; the first warms up.
template <typename Action>
std::string allocationsPerFrame(Action&& action)
{
    action();
    const std::uint64_t before = allocations();
    action();
    const double count = static_cast<double>(allocations() - before) / FRAMES;
    return verdict(figure(count), count < FEW);
}

void countAllocations(CTable& table, const char* name, EProtocol protocol, bool bindAny, int processor)
{
    CGatewayProcess gateway(protocol, processor);
    CPluginLink link(protocol, gateway.port(), bindAny);
    link.open();
    const SMessage message{ID_SWALLOW, {}};
    const std::string received =
        allocationsPerFrame([&] { repeat(FRAMES / BURST, [&] { receiveBurst(link, BURST); }); });
    const std::string sent = allocationsPerFrame([&] {
        repeat(FRAMES / BURST, [&] {
            link.sendJoined(message, BURST);
            roundTrip(link);
        });
    });
    const std::string exchanged = allocationsPerFrame([&] { repeat(FRAMES, [&] { roundTrip(link); }); });
    link.close();
    table.add({name, received, sent, exchanged});
}

double openInterfaceKib(EProtocol protocol, int processor)
{
    CGatewayProcess gateway(protocol, processor);
    CPluginLink link(protocol, gateway.port());
    std::vector<double> sizes;
    repeat(3, [&] {
        const std::size_t closed = heapInUse();
        link.open();
        receiveBurst(link, BURST);
        sizes.push_back((static_cast<double>(heapInUse()) - static_cast<double>(closed)) / 1024);
        link.close();
    });
    return median(sizes);
}

} // namespace

void measureHeap(int processor)
{
    CTable counts({"allocations a frame (aim: none)", "received in bursts", "sent", "sent and received one by one"});
    countAllocations(counts, "TCP", EProtocol::eTcp, false, processor);
    countAllocations(counts, "UDP", EProtocol::eUdp, false, processor);
    countAllocations(counts, "UDP bound to any address", EProtocol::eUdp, true, processor);
    counts.print();

    CTable sizes({"heap of an open interface over a closed one", "KiB", "aim"});
    for (const auto& [name, protocol] : {std::pair{"TCP", EProtocol::eTcp}, std::pair{"UDP", EProtocol::eUdp}}) {
        const double kib = openInterfaceKib(protocol, processor);
        sizes.add({name, figure(kib), verdict("< " + figure(OPEN_LIMIT_KIB), kib < OPEN_LIMIT_KIB)});
    }
    sizes.print();
}

} // namespace vexmor::Bench
