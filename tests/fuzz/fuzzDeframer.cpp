// Deframes any bytes. They must give the same frames wherever they are cut, and must not hide a valid frame after them.
// From any frame, the driver and a shared gateway must make a message that a bus can carry, or one complete answer.
#include "InterfaceT93/gatewayReplies.h"
#include "fuzz/require.h"
#include "sim/rmServer.h"

#include <algorithm>
#include <vector>

using namespace vexmor;
using namespace vexmor::Cim;

namespace
{
using Bytes = std::vector<std::uint8_t>;

struct SGateway : Sim::CRmServer {
    SGateway() : CRmServer(ETransports::eTcp) {}
    void putOnBus(const CCanMessage& message, Sim::CRmLink& /*from*/) override { requireCarried(message); }
    void change(const SRmFrame& request) override { require(request.payloadLength <= RM_MAX_RX_PAYLOAD); }
    void reply(Sim::CRmLink& /*link*/, const QByteArray& answer) override
    {
        int frames = 0;
        CRmDeframer().feed(
            reinterpret_cast<const std::uint8_t*>(answer.constData()), static_cast<std::size_t>(answer.size()),
            [&frames](const SRmFrame& /*frame*/) { return ++frames > 0; }, [] { return true; });
        require(frames == 1);
    }
    using CRmServer::handle;
};

void decode(const SRmFrame& frame)
{
    static SGateway gateway;
    static Sim::CRmLink host({});
    gateway.handle(host, frame);
    CCanMessage message;
    readCanMessage(frame, message);
    requireCarried(message);
    QString version;
    firmwareVersionOfReply(frame, version);
    firmwareVersionOfIdentification(frame, version);
}

/// Returns the frames of a stream that arrives in pieces of `step` bytes, each framed again.
Bytes framesOf(const Bytes& stream, std::size_t step, int& wrongChecksums)
{
    Bytes frames;
    CRmDeframer deframer;
    for (std::size_t offset = 0; offset < stream.size(); offset += step) {
        // A copy of exact size, so that the sanitizer detects a read beyond its end.
        const Bytes piece(&stream[offset], &stream[offset] + std::min(step, stream.size() - offset));
        deframer.feed(
            piece.data(), piece.size(),
            [&](const SRmFrame& frame) {
                decode(frame);
                std::uint8_t buffer[RM_BUFFER_SIZE];
                frames.insert(frames.end(), buffer,
                              buffer + rmFrameBytes(frame.command, frame.payload, frame.payloadLength, buffer));
                return true;
            },
            [&wrongChecksums] { return ++wrongChecksums > 0; });
    }
    return frames;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const Bytes good{0x43, 0x02, 0x42, 0x09, 0x0A, 0x0D};
    Bytes stream(bytes, bytes + count);
    stream.resize(count + 40); // the most that a broken frame can swallow
    stream.insert(stream.end(), good.begin(), good.end());
    int wrongWhole = 0;
    const Bytes frames = framesOf(stream, RM_BUFFER_SIZE, wrongWhole);
    require(frames.size() >= good.size());
    require(std::equal(good.rbegin(), good.rend(), frames.rbegin()));
    for (const std::size_t step : {1, 2, 3, 7, 16}) {
        int wrong = 0;
        int none = 0;
        require(framesOf(stream, step, wrong) == frames);
        require(wrong == wrongWhole);
        require(framesOf(frames, step, none) == frames); // valid frames are deframed to themselves
    }
    return 0;
}
