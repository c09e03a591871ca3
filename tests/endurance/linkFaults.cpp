// What a host sees of a link that fails: an interface and a gateway in a network that exists in this process only,
// joined by a cable that can be pulled, lose and delay. Prints a row of a Markdown table for each fault: linkFaults
// [FIRST WORDS OF A FAULT].
#include "bench/countedTraffic.h"
#include "bench/pluginLink.h"
#include "bench/resources.h"
#include "bench/virtualCable.h"

#include <QCoreApplication>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

using namespace vexmor;
using namespace vexmor::Bench;
using namespace std::chrono_literals;

namespace
{
constexpr std::uint16_t PORT = 30000;
const QString GATEWAY_ADDRESS = QStringLiteral("10.9.0.2");
constexpr int RATE = 200;       ///< messages a second, each way
constexpr int BEFORE_MS = 1500; ///< of a good link
constexpr int BACK_LIMIT_MS = 90000;
constexpr int SETTLE_MS = 1500;

/// A gateway with a network of its own: switched on as long as the object exists. What it had told its host's network
/// before it is switched off is forgotten with it: nobody says goodbye.
class CGatewayNode
{
public:
    /// Goes on counting where another one stopped.
    CGatewayNode(std::uint8_t lastMacByte, bool announce, int rate, const CCountingGateway::STotals& before)
    {
        m_thread.reset(QThread::create([=] {
            if (!enterPrivateNetwork(false)) {
                return;
            }
            m_port.emplace("gateway", lastMacByte, "10.9.0.2", announce);
            CCountingGateway gateway;
            QString error;
            Sim::SSimIdentity identity;
            identity.macAddress.back() = lastMacByte;
            gateway.gateway().setIdentity(identity);
            gateway.goOn(before);
            if (!gateway.gateway().listen(QHostAddress(GATEWAY_ADDRESS), PORT, error)) {
                return;
            }
            gateway.setRate(rate);
            QEventLoop loop;
            m_gateway = &gateway;
            m_loop = &loop;
            loop.exec();
            m_totals = gateway.totals();
        }));
        m_thread->start();
        while (m_loop == nullptr && m_thread->isRunning()) {
            QThread::msleep(1);
        }
        if (m_loop == nullptr) {
            throw std::runtime_error("the gateway does not start");
        }
    }
    ~CGatewayNode() { switchOff(); }

    int descriptor() const { return m_port->descriptor(); }
    /// In its own thread, while the caller waits.
    void ask(const std::function<void(CCountingGateway&)>& action)
    {
        QMetaObject::invokeMethod(
            m_gateway.load(), [&] { action(*m_gateway.load()); }, Qt::BlockingQueuedConnection);
    }
    /// Its port must not be plugged into a cable any more.
    CCountingGateway::STotals switchOff()
    {
        if (m_thread->isRunning()) {
            QMetaObject::invokeMethod(m_loop.load(), &QEventLoop::quit, Qt::QueuedConnection);
            m_thread->wait();
        }
        return m_totals;
    }

private:
    std::optional<CVirtualPort> m_port;
    std::atomic<CCountingGateway*> m_gateway{nullptr};
    std::atomic<QEventLoop*> m_loop{nullptr};
    CCountingGateway::STotals m_totals;
    std::unique_ptr<QThread> m_thread;
};
} // namespace

/// The two ends, the cable, and what the host is told.
class Scene : public QObject
{
    Q_OBJECT

public:
    Scene(EProtocol protocol, int rate, bool isSilent) : m_rate(rate), m_link(protocol, PORT, false, GATEWAY_ADDRESS)
    {
        startGateway(2);
        connect(&m_link.canInterface(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
        connect(&m_pacer, &CPacer::due, this, [this] {
            const int code =
                m_link.canInterface().writeMessage(numberedMessage(static_cast<std::uint32_t>(m_accepted)));
            if (code == 0) {
                ++m_accepted;
            } else if (m_refused++ == 0) {
                tell(QStringLiteral("sends give %1").arg(code));
            }
        });
        connect(&m_reader, &QTimer::timeout, this, [this] {
            for (Cim::CCanMessage next; m_link.canInterface().readMessage(next) == 0;) {
                m_fromGateway.take(numberOf(next));
            }
        });
        if (isSilent) {
            m_link.canInterface().setProperty("BusloadPollTime", 600000);
        }
        m_link.open();
        m_reader.start(1);
        m_pacer.start(isSilent ? 0 : m_rate);
        runFor(BEFORE_MS);
        m_identity = m_link.canInterface().commonInfo().interfaceId();
        m_clock.start();
    }
    ~Scene() override { m_cable.plug(-1, -1); }

    CVirtualCable& cable() { return m_cable; }
    const CVirtualPort& nearPort() const { return m_near; }
    CGatewayNode& gateway() { return *m_gateway; }
    void stopGateway()
    {
        m_cable.plug(-1, -1);
        m_before = m_gateway->switchOff();
        m_gateway.reset();
    }
    void startGateway(std::uint8_t lastMacByte, bool announce = false)
    {
        m_gateway = std::make_unique<CGatewayNode>(lastMacByte, announce, m_rate, m_before);
        m_cable.plug(m_near.descriptor(), m_gateway->descriptor());
    }

    /// Until messages pass both ways again; gives the milliseconds, or -1.
    int waitUntilBack(bool isSilent)
    {
        QElapsedTimer clock;
        clock.start();
        const std::uint64_t down = m_fromGateway.received;
        const std::uint64_t up = arrived();
        while (clock.elapsed() < BACK_LIMIT_MS) {
            if (m_fromGateway.received > down && (isSilent || arrived() > up)) {
                return static_cast<int>(clock.elapsed());
            }
            runFor(10);
        }
        return -1;
    }

    /// Ends the traffic and prints the row. True when it works again and nothing came twice or out of order.
    bool report(const char* name, const char* protocol, int backMs, bool mayLose)
    {
        runFor(BEFORE_MS);
        m_pacer.start(0);
        m_gateway->ask([](CCountingGateway& gateway) { gateway.stop(); });
        runFor(SETTLE_MS);
        if (m_link.canInterface().commonInfo().interfaceId() != m_identity) {
            m_told.append(QStringLiteral("interface id is another"));
        }
        stopGateway();
        const SSequenceCheck& up = m_before.fromHost;
        const std::uint64_t lostUp = m_accepted - up.received;
        const std::uint64_t lostDown = m_before.generated - m_fromGateway.received;
        const std::uint64_t disordered = up.disordered + m_fromGateway.disordered;
        std::printf("| %s | %s | %s | %.1f s | %llu of %llu (%llu more refused) | %llu of %llu (%llu without a link) | "
                    "%llu |\n",
                    name, protocol, m_told.isEmpty() ? "nothing" : qPrintable(m_told.join(QStringLiteral(", "))),
                    backMs / 1000.0, static_cast<unsigned long long>(lostUp),
                    static_cast<unsigned long long>(m_accepted), static_cast<unsigned long long>(m_refused),
                    static_cast<unsigned long long>(lostDown), static_cast<unsigned long long>(m_before.generated),
                    static_cast<unsigned long long>(m_before.offline), static_cast<unsigned long long>(disordered));
        std::fflush(stdout);
        return backMs >= 0 && disordered == 0 && (mayLose || lostUp + lostDown == 0);
    }

private Q_SLOTS:
    void onInterfaceError(int error) { tell(QStringLiteral("error %1").arg(error)); }

private:
    void tell(const QString& what)
    {
        m_told.append(
            QStringLiteral("%1 after %2 s").arg(what).arg(static_cast<double>(m_clock.elapsed()) / 1000, 0, 'f', 1));
    }
    std::uint64_t arrived()
    {
        std::uint64_t count = 0;
        m_gateway->ask([&count](CCountingGateway& gateway) { count = gateway.totals().fromHost.received; });
        return count;
    }

    const int m_rate;
    const CVirtualPort m_near{"host", 1, "10.9.0.1"};
    CVirtualCable m_cable;
    CCountingGateway::STotals m_before; ///< what gateways counted that are switched off
    std::unique_ptr<CGatewayNode> m_gateway;
    CPluginLink m_link;
    CPacer m_pacer;
    QTimer m_reader;
    QElapsedTimer m_clock; ///< since the fault began
    std::uint64_t m_accepted = 0;
    std::uint64_t m_refused = 0;
    SSequenceCheck m_fromGateway;
    QString m_identity; ///< of the gateway, before the fault
    QStringList m_told;
};

namespace
{
using Quality = CVirtualCable::SQuality;
using Act = void (*)(Scene&);

struct SFault {
    const char* name;
    EProtocol protocol;
    Act begin;
    int lastsMs;
    Act end;
    bool mayLose; ///< messages that were accepted
    int rate = RATE;
    bool isSilent = false; ///< the host asks and sends nothing of its own
};

void pull(Scene& scene)
{
    scene.cable().setQuality({true, 0, 0ms});
}
void lose(Scene& scene)
{
    scene.cable().setQuality({false, 0.1, 0ms});
}
void delay(Scene& scene)
{
    scene.cable().setQuality({false, 0, 200ms});
}
void heal(Scene& scene)
{
    scene.cable().setQuality({});
}
void setFaults(Scene& scene, bool mute, bool blackHole)
{
    scene.gateway().ask([=](CCountingGateway& gateway) {
        Sim::SSimFaults faults;
        faults.mute = mute;
        faults.blackHole = blackHole;
        gateway.gateway().setFaults(faults);
    });
}
/// From one moment to the next, and without a goodbye; all of them have the same address.
void replaceGateway(Scene& scene, std::uint8_t lastMacByte, bool announce)
{
    scene.stopGateway();
    scene.startGateway(lastMacByte, announce);
}
void nothing(Scene&) {}

constexpr auto TCP = EProtocol::eTcp;
constexpr auto UDP = EProtocol::eUdp;
const SFault FAULTS[] = {
    {"cable pulled for 5 s", TCP, pull, 5000, heal, false},
    {"cable pulled for 5 s", UDP, pull, 5000, heal, true},
    {"cable pulled for 15 s", TCP, pull, 15000, heal, true},
    {"cable pulled for 15 s, host silent", TCP, pull, 15000, heal, true, RATE, true},
    {"network interface of the PC off for 5 s", TCP, [](Scene& scene) { scene.nearPort().setUp(false); }, 5000,
     [](Scene& scene) { scene.nearPort().setUp(true); }, true},
    {"10 % of the packets lost, for 20 s", TCP, lose, 20000, heal, false},
    {"10 % of the packets lost, for 20 s", UDP, lose, 20000, heal, true},
    {"200 ms delay each way, for 20 s", TCP, delay, 20000, heal, false},
    {"200 ms delay each way, for 20 s", UDP, delay, 20000, heal, true},
    {"gateway reboots in the middle of a frame, 3 s", TCP,
     [](Scene& scene) {
         scene.gateway().ask([](CCountingGateway& gateway) {
             gateway.stop();
             gateway.gateway().sendRaw(QByteArray::fromHex("430b0001")); // the rest never comes
         });
         runFor(50);
         scene.stopGateway();
     },
     3000, [](Scene& scene) { scene.startGateway(2); }, true},
    {"half-open: gateway has forgotten the connection", TCP, [](Scene& scene) { replaceGateway(scene, 2, false); }, 0,
     nothing, true},
    {"half-open, host silent", TCP, [](Scene& scene) { replaceGateway(scene, 2, false); }, 0, nothing, true, RATE,
     true},
    {"another gateway, another MAC, says that it has the address", TCP,
     [](Scene& scene) { replaceGateway(scene, 3, true); }, 0, nothing, true},
    {"another gateway, another MAC, says that it has the address", UDP,
     [](Scene& scene) { replaceGateway(scene, 3, true); }, 0, nothing, true},
    {"another gateway, another MAC, says nothing", TCP, [](Scene& scene) { replaceGateway(scene, 3, false); }, 0,
     nothing, true},
    {"another gateway, another MAC, says nothing", UDP, [](Scene& scene) { replaceGateway(scene, 3, false); }, 0,
     nothing, true},
    {"gateway answers no request, for 5 s", TCP, [](Scene& scene) { setFaults(scene, true, false); }, 5000,
     [](Scene& scene) { setFaults(scene, false, false); }, false},
    {"gateway takes and says nothing (port open), for 20 s", TCP, [](Scene& scene) { setFaults(scene, false, true); },
     20000, [](Scene& scene) { setFaults(scene, false, false); }, true, 5000},
};

bool run(const SFault& fault)
{
    Scene scene(fault.protocol, fault.rate, fault.isSilent);
    fault.begin(scene);
    runFor(fault.lastsMs);
    fault.end(scene);
    const int backMs = scene.waitUntilBack(fault.isSilent);
    return scene.report(fault.name, fault.protocol == TCP ? "TCP" : "UDP", backMs, fault.mayLose);
}
} // namespace

int main(int argc, char** argv)
{
    if (!enterPrivateNetwork(true)) {
        std::printf("SKIPPED: network namespaces are forbidden here\n");
        return std::getenv("CI") == nullptr ? 77 : 1;
    }
    QCoreApplication application(argc, argv);
    const char* const only = argc > 1 ? argv[1] : "";
    int failed = 0;
    try {
        std::printf("| fault | | the host is told | works again after | lost, host to gateway | lost, gateway to host "
                    "| twice or "
                    "out of order |\n|---|---|---|---|---|---|---|\n");
        for (const SFault& fault : FAULTS) {
            if (std::strncmp(fault.name, only, std::strlen(only)) == 0) {
                failed += run(fault) ? 0 : 1;
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "linkFaults: %s\n", error.what());
        return 1;
    }
    std::printf("\n%d not as promised\n", failed);
    return failed == 0 ? 0 : 1;
}

#include "linkFaults.moc"
