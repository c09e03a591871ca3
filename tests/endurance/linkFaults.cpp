// What a host sees of a link that fails: an interface and a gateway in a network that exists in this process only,
// joined by a cable that can be pulled, lose and delay. Prints a row of a Markdown table for each fault: linkFaults
// [FIRST WORDS OF A FAULT].
#include "bench/measuring.h"
#include "tests/endurance/countedTraffic.h"
#include "tests/endurance/virtualCable.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>

using namespace vexmor;
using namespace vexmor::Endurance;
using namespace std::chrono_literals;

namespace
{
constexpr std::uint16_t PORT = 30000;
const QString GATEWAY_ADDRESS = QStringLiteral("10.9.0.2");
constexpr int RATE = 200;       ///< messages a second, each way
constexpr int BEFORE_MS = 1500; ///< of a good link
constexpr int BACK_LIMIT_MS = 90000;
constexpr int SETTLE_MS = 1500;

/// The two ends, the cable between them, and the events at the host.
class CScene
{
public:
    CScene(EProtocol protocol, int rate, bool isSilent) : m_rate(rate), m_host(protocol, PORT, GATEWAY_ADDRESS)
    {
        startGateway(2);
        m_host.onEvent = [this](const std::string& what) {
            m_events += text("%s%s after %.1f s", m_events.empty() ? "" : ", ", what.c_str(),
                             static_cast<double>(m_clock.elapsed()) / 1000);
        };
        if (isSilent) {
            m_host.canInterface().setProperty("BusloadPollTime", 600000);
        }
        open(m_host.canInterface());
        m_host.readAlways();
        m_host.send(isSilent ? 0 : m_rate);
        runFor(BEFORE_MS);
        m_identity = m_host.canInterface().commonInfo().interfaceId();
        m_clock.start();
    }
    ~CScene() { m_cable.plug(-1, -1); }

    CVirtualCable& cable() { return m_cable; }
    const CVirtualPort& nearPort() const { return m_near; }
    CGatewayThread& gateway() { return *m_gateway; }
    void stopGateway()
    {
        m_cable.plug(-1, -1);
        m_before = m_gateway->switchOff();
        m_far.reset();
    }
    /// The gateway has a network of its own, which goes with it: no connection is closed in an orderly way.
    void startGateway(std::uint8_t lastMacByte, bool announce = false)
    {
        const auto listen = [=](Sim::CSimGateway& gateway) {
            if (!enterPrivateNetwork(false)) {
                return false;
            }
            m_far.emplace("gateway", lastMacByte, "10.9.0.2", announce);
            Sim::SSimIdentity identity;
            identity.macAddress.back() = lastMacByte;
            gateway.setIdentity(identity);
            return !gateway.listen(QHostAddress(GATEWAY_ADDRESS), PORT);
        };
        m_gateway = std::make_unique<CGatewayThread>(m_rate, listen, m_before);
        m_cable.plug(m_near.descriptor(), m_far->descriptor());
    }

    /// Until messages pass both ways again; gives the milliseconds, or -1.
    int waitUntilBack(bool isSilent)
    {
        QElapsedTimer clock;
        clock.start();
        const std::uint64_t down = m_host.fromGateway.received;
        const std::uint64_t up = arrived();
        while (clock.elapsed() < BACK_LIMIT_MS) {
            if (m_host.fromGateway.received > down && (isSilent || arrived() > up)) {
                return static_cast<int>(clock.elapsed());
            }
            runFor(10);
        }
        return -1;
    }

    /// Ends the traffic and adds what became of it to the cells of a row. True when nothing came twice or out of order,
    /// and nothing is missing that must not be.
    bool finish(int backMs, bool mayLose, std::vector<std::string>& cells)
    {
        runFor(BEFORE_MS);
        m_host.send(0);
        m_gateway->ask([](SCountingGateway& gateway) { gateway.pacer.start(0); });
        runFor(SETTLE_MS);
        if (m_host.canInterface().commonInfo().interfaceId() != m_identity) {
            m_events += m_events.empty() ? "interface id is another" : ", interface id is another";
        }
        stopGateway();
        const SSequence& up = m_before.fromHost;
        const std::uint64_t lostUp = m_host.accepted - up.received;
        const std::uint64_t lostDown = m_before.generated - m_host.fromGateway.received;
        const std::uint64_t disordered = up.disordered + m_host.fromGateway.disordered;
        cells.insert(cells.end(), {m_events.empty() ? "nothing" : m_events, text("%.1f s", backMs / 1000.0),
                                   std::to_string(lostUp) + " of " + std::to_string(m_host.accepted) + " (" +
                                       std::to_string(m_host.refusedSends) + " more refused)",
                                   std::to_string(lostDown) + " of " + std::to_string(m_before.generated) + " (" +
                                       std::to_string(m_before.offline) + " without a link)",
                                   std::to_string(disordered)});
        return disordered == 0 && (mayLose || lostUp + lostDown == 0);
    }

private:
    std::uint64_t arrived()
    {
        std::uint64_t count = 0;
        m_gateway->ask([&count](SCountingGateway& gateway) { count = gateway.totals.fromHost.received; });
        return count;
    }

    const int m_rate;
    const CVirtualPort m_near{"host", 1, "10.9.0.1"};
    CVirtualCable m_cable;
    STotals m_before;                  ///< what gateways counted that are switched off
    std::optional<CVirtualPort> m_far; ///< the gateway's
    std::unique_ptr<CGatewayThread> m_gateway;
    CCountingHost m_host;
    QElapsedTimer m_clock; ///< since the fault began
    QString m_identity;    ///< of the gateway, before the fault
    std::string m_events;
};

using Act = std::function<void(CScene&)>;

struct SFault {
    const char* name;
    EProtocol protocol;
    Act begin;
    int lastsMs;
    Act end;
    bool mayLose; ///< messages that were accepted
    int rate = RATE;
    bool isSilent = false; ///< The host sends neither requests nor messages.
};

Act cable(bool pulled, double loss, std::chrono::milliseconds delay)
{
    return [=](CScene& scene) { scene.cable().setQuality({pulled, loss, delay}); };
}
const Act PULL = cable(true, 0, 0ms);
const Act LOSE = cable(false, 0.1, 0ms);
const Act DELAY = cable(false, 0, 200ms);
const Act HEAL = cable(false, 0, 0ms);
Act interfaceOfThePc(bool up)
{
    return [=](CScene& scene) { scene.nearPort().setUp(up); };
}
Act gatewayThat(bool isMute, bool isBlackHole)
{
    return [=](CScene& scene) {
        scene.gateway().ask([=](SCountingGateway& gateway) {
            Sim::SSimFaults faults;
            faults.mute = isMute;
            faults.blackHole = isBlackHole;
            gateway.gateway.setFaults(faults);
        });
    };
}
const Act ANSWERS_AGAIN = gatewayThat(false, false);
/// From one moment to the next, and without a goodbye; all of them have the same address.
Act anotherGateway(std::uint8_t lastMacByte, bool announce)
{
    return [=](CScene& scene) {
        scene.stopGateway();
        scene.startGateway(lastMacByte, announce);
    };
}
void switchOffInTheMiddleOfAFrame(CScene& scene)
{
    scene.gateway().ask([](SCountingGateway& gateway) {
        gateway.pacer.start(0);
        gateway.gateway.sendRaw(QByteArray::fromHex("430b0001")); // the rest never comes
    });
    runFor(50);
    scene.stopGateway();
}
void nothing(CScene&) {}

constexpr auto TCP = EProtocol::eTcp;
constexpr auto UDP = EProtocol::eUdp;
const SFault FAULTS[] = {
    {"cable pulled for 5 s", TCP, PULL, 5000, HEAL, false},
    {"cable pulled for 5 s", UDP, PULL, 5000, HEAL, true},
    {"cable pulled for 15 s", TCP, PULL, 15000, HEAL, true},
    {"cable pulled for 15 s, host silent", TCP, PULL, 15000, HEAL, true, RATE, true},
    {"network interface of the PC off for 5 s", TCP, interfaceOfThePc(false), 5000, interfaceOfThePc(true), true},
    {"10 % of the packets lost, for 20 s", TCP, LOSE, 20000, HEAL, false},
    {"10 % of the packets lost, for 20 s", UDP, LOSE, 20000, HEAL, true},
    {"200 ms delay each way, for 20 s", TCP, DELAY, 20000, HEAL, false},
    {"200 ms delay each way, for 20 s", UDP, DELAY, 20000, HEAL, true},
    {"gateway reboots in the middle of a frame, 3 s", TCP, switchOffInTheMiddleOfAFrame, 3000,
     [](CScene& scene) { scene.startGateway(2); }, true},
    {"half-open: gateway has forgotten the connection", TCP, anotherGateway(2, false), 0, nothing, true},
    {"half-open, host silent", TCP, anotherGateway(2, false), 0, nothing, true, RATE, true},
    {"another gateway, another MAC, says that it has the address", TCP, anotherGateway(3, true), 0, nothing, true},
    {"another gateway, another MAC, says that it has the address", UDP, anotherGateway(3, true), 0, nothing, true},
    {"another gateway, another MAC, says nothing", TCP, anotherGateway(3, false), 0, nothing, true},
    {"another gateway, another MAC, says nothing", UDP, anotherGateway(3, false), 0, nothing, true},
    {"gateway answers no request, for 5 s", TCP, gatewayThat(true, false), 5000, ANSWERS_AGAIN, false},
    {"gateway takes and says nothing (port open), for 20 s", TCP, gatewayThat(false, true), 20000, ANSWERS_AGAIN, true,
     5000},
};

/// True when it works again and nothing is as it must not be.
bool run(const SFault& fault)
{
    CScene scene(fault.protocol, fault.rate, fault.isSilent);
    fault.begin(scene);
    runFor(fault.lastsMs);
    fault.end(scene);
    const int backMs = scene.waitUntilBack(fault.isSilent);
    std::vector<std::string> cells{fault.name, fault.protocol == TCP ? "TCP" : "UDP"};
    const bool ok = scene.finish(backMs, fault.mayLose, cells);
    printRow(cells);
    return backMs >= 0 && ok;
}
} // namespace

int main(int argc, char** argv)
{
    if (!enterPrivateNetwork(true)) {
        std::printf("SKIPPED: network namespaces are forbidden here\n");
        return std::getenv("CI") == nullptr ? 77 : 1;
    }
    const QCoreApplication application(argc, argv);
    const char* const only = argc > 1 ? argv[1] : "";
    return exitCodeOf("linkFaults", [&] {
        printHead({"fault", "", "events at the host", "works again after", "lost, host to gateway",
                   "lost, gateway to host", "twice or out of order"});
        int failed = 0;
        for (const SFault& fault : FAULTS) {
            if (std::strncmp(fault.name, only, std::strlen(only)) == 0) {
                failed += run(fault) ? 0 : 1;
            }
        }
        std::printf("\n%d not as promised\n", failed);
        return failed == 0;
    });
}
