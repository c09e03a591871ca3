// What hosts of a shared gateway send has the same effect whatever the cut: whole frames as answers, and messages that
// a bus can carry.
#include "fuzz/require.h"
#include "sim/rmServer.h"

#include <algorithm>

using namespace vexmor::Sim;
using namespace vexmor::Cim;

namespace
{
struct SHost : CRmLink {
    SHost() : CRmLink({}) {}
    void send(const QByteArray& frame) override { answers.append(frame); }
    QByteArrayList answers;
};

struct SGateway : CRmServer {
    SGateway() : CRmServer(ETransports::eTcp) {}
    void putOnBus(const CCanMessage& message, CRmLink& from) override
    {
        requireCarried(message);
        from.send(rmFrame(message));
    }
    void change(const SRmFrame& request) override { require(request.payloadLength <= RM_MAX_RX_PAYLOAD); }
    using CRmServer::handle;
};

QByteArrayList answersTo(const std::uint8_t* bytes, std::size_t count, std::size_t step)
{
    SGateway gateway;
    SHost host;
    QObject::connect(&host, &CRmLink::frameReceived, [&](const SRmFrame& frame) { gateway.handle(host, frame); });
    for (std::size_t i = 0; i < count; i += step) {
        host.receive(reinterpret_cast<const char*>(bytes) + i, static_cast<qint64>(std::min(step, count - i)));
    }
    return host.answers;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const QByteArrayList answers = answersTo(bytes, count, std::max<std::size_t>(count, 1));
    require(answersTo(bytes, count, 1) == answers);
    const QByteArray stream = answers.join();
    int whole = 0;
    CRmDeframer().feed(
        reinterpret_cast<const std::uint8_t*>(stream.constData()), static_cast<std::size_t>(stream.size()),
        [&](const SRmFrame&) { return ++whole > 0; },
        [] {
            require(false);
            return true;
        });
    require(whole == answers.size());
    return 0;
}
