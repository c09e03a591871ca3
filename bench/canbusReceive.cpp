// What a received frame costs a program that uses Qt's CAN bus API: by the backend t93canbus, and by Qt's own
// virtualcan, which gets the same frames from a gateway process of its own in the same run. Prints a table in Markdown.
// Needs QT_PLUGIN_PATH. Argument: rounds.
#include "bench/eventLoop.h"
#include "bench/gatewayProcess.h"
#include "bench/hostApplication.h"
#include "bench/measuring.h"

#include <QCanBus>
#include <QCanBusDevice>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

using namespace vexmor::Bench;

namespace
{
constexpr int GATEWAY_PROCESSOR = 1;
constexpr int ALL = 8000; ///< frames a round
constexpr double AIM = 1.0 / 3;

/// A device at a gateway process.
class CCanBusLink
{
public:
    CCanBusLink(const char* backend, const char* name, const SLanguage& language)
        : m_gateway(EProtocol::eTcp, GATEWAY_PROCESSOR, language)
    {
        QString error;
        m_device.reset(QCanBus::instance()->createDevice(QLatin1String(backend),
                                                         QString::fromLatin1(name).arg(m_gateway.port()), &error));
        if (!m_device || !m_device->connectDevice()) {
            throw std::runtime_error(backend + (": " + (m_device ? m_device->errorString() : error).toStdString()));
        }
        waitUntil([this] { return m_device->state() == QCanBusDevice::ConnectedState; }, "no connection");
    }

    /// What each of the frames of a round costs that come in bursts of `frames`.
    SCost receive(int frames)
    {
        const SMessage request = burstRequest(frames);
        const QByteArray data(reinterpret_cast<const char*>(request.data.data()),
                              static_cast<int>(request.data.size()));
        return costOf([&] {
                   repeat(ALL / frames, [&] {
                       int missing = frames;
                       m_device->writeFrame(QCanBusFrame(request.id, data));
                       const auto take = [&] {
                           missing -= m_device->framesAvailable() > 0 ? m_device->readAllFrames().size() : 0;
                           return missing == 0;
                       };
                       waitUntil(take, "frames missing");
                   });
               }) /
               ALL;
    }

private:
    CGatewayProcess m_gateway;
    std::unique_ptr<QCanBusDevice> m_device;
};

void measure(int rounds)
{
    CCanBusLink t93canbus("t93canbus", "127.0.0.1:%1:TCP", RM_LANGUAGE);
    CCanBusLink virtualcan("virtualcan", "tcp://127.0.0.1:%1/can0", VIRTUALCAN_LANGUAGE);
    CTable table({"received frame, CPU, ns", "t93canbus", "virtualcan", "t93canbus / virtualcan", "aim"});
    for (const int frames : {ALL, 100, 10, 1}) {
        std::vector<double> ours;
        std::vector<double> theirs;
        for (int round = 0; round <= rounds; ++round) { // the first one warms up
            const double our = t93canbus.receive(frames).cpu;
            const double their = virtualcan.receive(frames).cpu;
            if (round > 0) {
                ours.push_back(our);
                theirs.push_back(their);
            }
        }
        const double ratio = medianRatio(ours, theirs);
        table.add({"bursts of " + std::to_string(frames) + ", asked for with a frame", figure(median(ours)),
                   figure(median(theirs)), figure(ratio), frames == ALL ? verdict("<= 1/3", ratio <= AIM) : ""});
    }
    table.print();
}
} // namespace

int main(int argc, char** argv)
{
    setenv("TZ", "UTC", 0); // else virtualcan has the time zone's file looked at for each frame
    try {
        const CHostApplication application;
        measure(argc > 1 ? std::atoi(argv[1]) : 25);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "canbusReceive: %s\n", failure.what());
        return 1;
    }
    return aimsMissed() == 0 ? 0 : 2;
}
