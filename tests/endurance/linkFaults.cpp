// Tests how a host notices link faults: an interface and a gateway in network namespaces of this process are connected
// by a cable that can be pulled or lose packets. Prints one row of a Markdown table per fault: linkFaults [FIRST WORDS
// OF A FAULT].
#include "tests/endurance/countedTraffic.h"
#include "tests/endurance/virtualCable.h"

#include <QCoreApplication>

#include <sched.h>

#include <cstdio>

using namespace vexmor;
using namespace vexmor::Endurance;

namespace
{
constexpr std::uint16_t PORT = 30000;
const QString GATEWAY_ADDRESS = QStringLiteral("10.9.0.2");
constexpr int RATE = 200;       ///< Messages per second, each way.
constexpr int BEFORE_MS = 1500; ///< Time with a good link, before and after the fault.
constexpr int BACK_LIMIT_MS = 90000;

/// The two ends and the cable between them.
class CScene
{
public:
    CScene(EProtocol protocol, bool isHostSilent) : traffic(protocol, GATEWAY_ADDRESS, PORT)
    {
        startGateway(2);
        traffic.open(isHostSilent);
        traffic.send(RATE);
        runFor(BEFORE_MS);
        traffic.startClock();
    }
    ~CScene()
    {
        stopGateway();
        ::close(m_hostNetwork);
    }

    /// Stops the gateway together with its network, so that it cannot close connections in an orderly way.
    void stopGateway()
    {
        cable.plug(-1, -1);
        traffic.switchOff();
        m_far.reset();
    }
    void startGateway(std::uint8_t lastMacByte)
    {
        check(unshare(CLONE_NEWNET) == 0, "unshare");
        m_far.emplace("gateway", lastMacByte, GATEWAY_ADDRESS.toStdString());
        traffic.switchOn(lastMacByte);
        check(setns(m_hostNetwork, CLONE_NEWNET) == 0, "setns");
        cable.plug(m_near.descriptor(), m_far->descriptor());
    }

    CVirtualCable cable;
    CCountedTraffic traffic;

private:
    const int m_hostNetwork = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const CVirtualPort m_near{"host", 1, "10.9.0.1"};
    std::optional<CVirtualPort> m_far; ///< The port of the gateway.
};

using Act = std::function<void(CScene&)>;

Act cableThatLoses(double share)
{
    return [=](CScene& scene) { scene.cable.setLoss(share); };
}
const Act PULL = cableThatLoses(1);
const Act LOSE = cableThatLoses(0.1);
const Act HEAL = cableThatLoses(0);

/// Returns an act that replaces the gateway by another one with the same address.
Act anotherGateway(std::uint8_t lastMacByte)
{
    return [=](CScene& scene) {
        scene.stopGateway();
        scene.startGateway(lastMacByte);
    };
}
void switchOffInTheMiddleOfAFrame(CScene& scene)
{
    scene.traffic.send(0);
    scene.traffic.gateway().sendRaw(QByteArray::fromHex("430b0001")); // the rest of the frame never arrives
    runFor(50);
    scene.stopGateway();
    scene.traffic.send(RATE);
}

struct SFault {
    const char* name;
    EProtocol protocol;
    Act begin;
    int lastsMs;
    Act end;
    std::uint64_t losses; ///< Times that the host is to see error 0.
    bool isHostSilent = false;
};

constexpr auto TCP = EProtocol::eTcp;
constexpr auto UDP = EProtocol::eUdp;
const SFault FAULTS[] = {
    {"cable pulled for 5 s", TCP, PULL, 5000, HEAL, 0},
    {"cable pulled for 5 s", UDP, PULL, 5000, HEAL, 0},
    {"cable pulled for 15 s", TCP, PULL, 15000, HEAL, 1},
    {"10 % of the packets lost, for 20 s", TCP, LOSE, 20000, HEAL, 0},
    {"10 % of the packets lost, for 20 s", UDP, LOSE, 20000, HEAL, 0},
    {"gateway reboots in the middle of a frame, 3 s", TCP, switchOffInTheMiddleOfAFrame, 3000, anotherGateway(2), 1},
    {"half-open: gateway has forgotten the connection", TCP, anotherGateway(2), 0, HEAL, 1},
    {"half-open, host silent", TCP, anotherGateway(2), 0, HEAL, 1, true},
    {"another gateway has the address", TCP, anotherGateway(3), 0, HEAL, 1},
    {"another gateway has the address", UDP, anotherGateway(3), 0, HEAL, 0},
};

bool run(const SFault& fault)
{
    CScene scene(fault.protocol, fault.isHostSilent);
    CCountedTraffic& traffic = scene.traffic;
    fault.begin(scene);
    runFor(fault.lastsMs);
    fault.end(scene);
    QElapsedTimer back; // time until messages pass both ways again
    back.start();
    for (const auto up = traffic.up.arrived.received, down = traffic.down.arrived.received;
         (!fault.isHostSilent && traffic.up.arrived.received == up) || traffic.down.arrived.received == down;) {
        if (back.hasExpired(BACK_LIMIT_MS)) {
            return holds("messages pass again", false);
        }
        runFor(10);
    }
    const double seconds = back.elapsed() / 1000.0;
    runFor(BEFORE_MS);
    traffic.finish();
    printRow({fault.name, fault.protocol == TCP ? "TCP" : "UDP", traffic.events.empty() ? "nothing" : traffic.events,
              text("%.1f s", seconds), traffic.lost()});
    return traffic.isAsPromised(fault.losses);
}
} // namespace

int main(int argc, char** argv)
{
    // A network of its own, without a way out of the machine, as the root of its namespaces.
    const uid_t user = getuid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 ||
        !(std::ofstream("/proc/self/uid_map") << "0 " << user << " 1" << std::flush)) {
        std::printf("SKIPPED: network namespaces are forbidden here\n");
        return std::getenv("CI") == nullptr ? 77 : 1;
    }
    const QCoreApplication application(argc, argv);
    const char* const only = argc > 1 ? argv[1] : "";
    printHead({"fault", "", "events at the host", "works again after", LOST_HEAD});
    bool ok = true;
    for (const SFault& fault : FAULTS) {
        ok &= std::strncmp(fault.name, only, std::strlen(only)) != 0 || run(fault);
    }
    return ok ? 0 : 1;
}
