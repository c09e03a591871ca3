// A gateway and a host that talk for a long time, while the link is lost again and again: soak [MINUTES, 60] [RATE,
// 5000] [LOSS EVERY SECONDS, 10]. Prints a row of a Markdown table for every tenth of the time, and what became of
// the messages.
#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>

#include <cstdio>

using namespace vexmor;
using namespace vexmor::Endurance;

namespace
{
constexpr int ROWS = 10;
constexpr double MEMORY_LIMIT_KIB = 1024; ///< More growth than this after the first row is a leak.

std::uint64_t s_shown = 0; ///< Received messages that the spy handler has seen.

int spy(const Cim::CCanInterface&, bool isSent, const Cim::CCanMessage&)
{
    s_shown += isSent ? 0 : 1;
    return 0;
}

/// Prints a row for every tenth of the time; returns whether none shows more than the first.
bool watchResources(double minutes)
{
    printHead({"minutes", "resident memory, KiB", "in use on the heap, KiB", "file descriptors"});
    SResources first;
    bool isFlat = true;
    for (int row = 1; row <= ROWS; ++row) {
        runFor(static_cast<int>(minutes * 60000 / ROWS));
        const SResources now = resources();
        first = row == 1 ? now : first;
        isFlat &= now.residentKib - first.residentKib <= MEMORY_LIMIT_KIB;
        isFlat &= row < ROWS || now.descriptors <= first.descriptors; // one more while a link comes back
        printRow({text("%.1f", minutes * row / ROWS), text("%.0f", now.residentKib), text("%.0f", now.heapKib),
                  std::to_string(now.descriptors)});
    }
    return isFlat;
}

bool soak(double minutes, int rate, int lossEverySeconds)
{
    CCountedTraffic traffic(EProtocol::eTcp, QStringLiteral("127.0.0.1"), 0);
    traffic.switchOn(1);
    traffic.open();
    traffic.host().setSpyHandler(spy);
    std::uint64_t losses = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        losses += traffic.hasClient() ? 1 : 0;
        traffic.gateway().dropLinks();
    });
    timer.start(lossEverySeconds * 1000);
    traffic.send(rate);
    std::printf("%d messages/s each way for %g minutes, a link loss every %d s\n", rate, minutes, lossEverySeconds);
    const bool isFlat = watchResources(minutes);
    timer.stop();
    traffic.finish();
    CCountedTraffic::printHead({"links lost"});
    traffic.printRow({std::to_string(losses)});
    const bool ok = traffic.isAsPromised(losses);
    return ok & holds("the spy handler sees what is read", s_shown == traffic.down.arrived.received) &
           holds("memory and descriptors are flat after the first tenth", isFlat);
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return soak(argc > 1 ? std::atof(argv[1]) : 60, argc > 2 ? std::atoi(argv[2]) : 5000,
                argc > 3 ? std::atoi(argv[3]) : 10)
               ? 0
               : 1;
}
