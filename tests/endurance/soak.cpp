// Traffic between a gateway and a host for a long time with regular losses of the link: soak [MINUTES, 60] [RATE, 5000]
// [LOSS EVERY SECONDS, 10]. Prints the number of lost messages and the growth of resources.
#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>

#include <cstdlib>

using namespace vexmor::Endurance;

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const double minutes = argc > 1 ? std::atof(argv[1]) : 60;
    const int rate = argc > 2 ? std::atoi(argv[2]) : 5000;
    CCountedTraffic traffic(EProtocol::eTcp, QStringLiteral("127.0.0.1"), 0);
    traffic.switchOn(1);
    traffic.open();
    std::uint64_t losses = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        losses += traffic.hasClient() ? 1 : 0;
        traffic.gateway().dropLinks();
    });
    timer.start((argc > 3 ? std::atoi(argv[3]) : 10) * 1000);
    traffic.send(rate);
    const int tenth = static_cast<int>(minutes * 6000);
    runFor(tenth);
    const SResources first = resources();
    runFor(9 * tenth);
    timer.stop();
    runFor(5000); // the last link lost has come back
    traffic.finish();
    const SResources grown = resources() - first;
    printHead({"", "links lost", LOST_HEAD, "growth after the first tenth"});
    printRow({text("%g minutes, %d messages/s each way", minutes, rate), std::to_string(losses), traffic.lost(),
              textOf(grown)});
    const bool isWhole = traffic.isAsPromised(losses);
    return isFlat(grown, 1024) && isWhole ? 0 : 1;
}
