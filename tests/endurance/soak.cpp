// A gateway and a host that talk for a long time, while the link is lost again and again: soak [MINUTES, 60] [RATE,
// 5000] [LOSS EVERY SECONDS, 10]. Prints a row of a Markdown table for every tenth of the time, and what became of
// every message.
#include "bench/countedTraffic.h"
#include "bench/pluginLink.h"
#include "bench/resources.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <vector>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
constexpr int ROWS = 10;
constexpr double MEMORY_LIMIT_KIB = 1024; ///< more growth than this after the first row is a leak

std::uint64_t s_shown = 0; ///< messages that the spy handler was shown as received

int spy(const Cim::CCanInterface&, bool isSent, const Cim::CCanMessage&)
{
    s_shown += isSent ? 0 : 1;
    return 0;
}
} // namespace

/// The host's side.
class SoakHost : public QObject
{
    Q_OBJECT

public:
    explicit SoakHost(std::uint16_t port) : m_link(EProtocol::eTcp, port)
    {
        m_link.canInterface().setSpyHandler(spy);
        connect(&m_link.canInterface(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
        connect(&m_pacer, &CPacer::due, this, [this] {
            const int code = m_link.canInterface().writeMessage(numberedMessage(static_cast<std::uint32_t>(accepted)));
            if (code == 0) {
                ++accepted;
            } else {
                ++refused[code];
            }
        });
        connect(&m_reader, &QTimer::timeout, this, [this] {
            for (Cim::CCanMessage next; m_link.canInterface().readMessage(next) == 0;) {
                fromGateway.take(numberOf(next));
            }
        });
        m_link.open();
        m_reader.start(1);
    }
    void start(int rate) { m_pacer.start(rate); }
    void stop() { m_pacer.start(0); }

    std::uint64_t accepted = 0;
    std::map<int, std::uint64_t> refused; ///< by code
    std::map<int, std::uint64_t> errors;  ///< by interface error
    SSequenceCheck fromGateway;

private Q_SLOTS:
    void onInterfaceError(int error) { ++errors[error]; }

private:
    CPluginLink m_link;
    CPacer m_pacer;
    QTimer m_reader;
};

namespace
{
/// Prints whether a line of the reckoning holds.
bool holds(const char* what, bool isTrue)
{
    std::printf("- %s: %s\n", what, isTrue ? "yes" : "NO");
    return isTrue;
}

bool reckon(const SoakHost& host, const CCountingGateway::STotals& gateway, std::uint64_t shown)
{
    const SSequenceCheck& up = gateway.fromHost;
    const SSequenceCheck& down = host.fromGateway;
    std::printf(
        "\n| | put out | no link (told) | handed over | arrived | lost with a link | a loss, on average | twice or "
        "out of order |\n"
        "|---|---|---|---|---|---|---|---|\n");
    std::uint64_t refused = 0;
    for (const auto& [code, count] : host.refused) {
        refused += count;
    }
    const auto row = [&](const char* way, std::uint64_t out, std::uint64_t noLink, const SSequenceCheck& check,
                         std::uint64_t lost) {
        std::printf("| %s | %llu | %llu | %llu | %llu | %llu | %.0f | %llu |\n", way,
                    static_cast<unsigned long long>(out), static_cast<unsigned long long>(noLink),
                    static_cast<unsigned long long>(out - noLink), static_cast<unsigned long long>(check.received),
                    static_cast<unsigned long long>(lost),
                    gateway.drops == 0 ? 0.0 : static_cast<double>(lost) / static_cast<double>(gateway.drops),
                    static_cast<unsigned long long>(check.disordered));
    };
    row("host to gateway", host.accepted + refused, refused, up, up.missing);
    row("gateway to host", gateway.generated, gateway.offline, down, down.missing - gateway.offline);
    std::printf("\n%llu links lost, and one more at the end; errors told to the host:",
                static_cast<unsigned long long>(gateway.drops));
    for (const auto& [error, count] : host.errors) {
        std::printf(" %d (%llu times)", error, static_cast<unsigned long long>(count));
    }
    std::printf("; refused sends:");
    for (const auto& [code, count] : host.refused) {
        std::printf(" %d (%llu times)", code, static_cast<unsigned long long>(count));
    }
    std::printf("\n\n");
    bool ok = holds("every message up to the last is accounted for, from the host",
                    up.nextNumber == host.accepted && up.received + up.missing == host.accepted);
    ok &= holds("and from the gateway", down.nextNumber == gateway.generated && down.missing >= gateway.offline);
    ok &= holds("messages are missing only where a link was lost",
                up.gaps <= gateway.drops && down.gaps <= gateway.drops);
    ok &= holds("none came twice or out of order", up.disordered + down.disordered == 0);
    ok &= holds("every loss was told once, the gateway's end last, and nothing else",
                host.errors == std::map<int, std::uint64_t>{{0, gateway.drops + 1}});
    ok &= holds("the spy handler saw what was read", shown == down.received);
    return ok;
}

int soak(double minutes, int rate, int lossEverySeconds)
{
    CGatewayRole gateway(rate, lossEverySeconds * 1000);
    SoakHost host(gateway.port());
    host.start(rate);
    std::printf("%d messages/s each way for %g minutes, a link loss every %d s\n\n"
                "| minutes | resident memory, KiB | in use on the heap, KiB | file descriptors |\n|---|---|---|---|\n",
                rate, minutes, lossEverySeconds);
    std::vector<SResources> samples;
    for (int row = 1; row <= ROWS; ++row) {
        runFor(static_cast<int>(minutes * 60000 / ROWS));
        samples.push_back(resources());
        std::printf("| %.1f | %.0f | %.0f | %d |\n", minutes * row / ROWS, samples.back().residentKib,
                    samples.back().heapKib, samples.back().descriptors);
        std::fflush(stdout);
    }
    host.stop();
    const CCountingGateway::STotals totals = gateway.finish();
    runFor(500); // until its end has come through, too
    const auto mostMemory = std::max_element(
        samples.begin(), samples.end(), [](const auto& a, const auto& b) { return a.residentKib < b.residentKib; });
    bool ok = reckon(host, totals, s_shown);
    ok &= holds("memory is flat after the first tenth",
                mostMemory->residentKib - samples.front().residentKib <= MEMORY_LIMIT_KIB);
    ok &= holds("file descriptors are flat", samples.back().descriptors <= samples.front().descriptors);
    return ok ? 0 : 1;
}
} // namespace

int main(int argc, char** argv)
{
    if (CGatewayRole::run(argc, argv)) {
        return 0;
    }
    QCoreApplication application(argc, argv);
    try {
        return soak(argc > 1 ? std::atof(argv[1]) : 60, argc > 2 ? std::atoi(argv[2]) : 5000,
                    argc > 3 ? std::atoi(argv[3]) : 10);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}

#include "soak.moc"
