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

/// Requires that a bus can carry a message.
void requireCarried(const CCanMessage& message)
{
    require(message.id().value() <= 0x7FF && message.length() <= 8);
}

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

/// Returns the frames of a stream that arrives in pieces of `step` bytes, each framed again, and another wrong frame
/// for each with a wrong checksum.
Bytes framesOf(const Bytes& stream, std::size_t step)
{
    static SGateway gateway;
    static Sim::CRmLink host({});
    static const Bytes WRONG{RM_START_OF_FRAME, 1, RM_CMD_FIRMWARE_VERSION, 0xFF};
    Bytes frames;
    const auto onWrong = [&frames] { return frames.insert(frames.end(), WRONG.begin(), WRONG.end()), true; };
    const auto onFrame = [&frames](const SRmFrame& frame) {
        gateway.handle(host, frame);
        requireCarried(canMessageOfFrame(frame));
        QString version;
        firmwareVersionOfReply(frame, version);
        firmwareVersionOfIdentification(frame, version);
        std::uint8_t buffer[RM_BUFFER_SIZE];
        frames.insert(frames.end(), buffer,
                      buffer + rmFrameBytes(frame.command, frame.payload, frame.payloadLength, buffer));
        return true;
    };
    CRmDeframer deframer;
    for (std::size_t offset = 0; offset < stream.size(); offset += step) {
        // A copy of exact size, so that the sanitizer detects a read beyond its end.
        const Bytes piece(&stream[offset], &stream[offset] + std::min(step, stream.size() - offset));
        deframer.feed(piece.data(), piece.size(), onFrame, onWrong);
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
    const Bytes frames = framesOf(stream, RM_BUFFER_SIZE);
    require(frames.size() >= good.size() && std::equal(good.rbegin(), good.rend(), frames.rbegin()));
    for (const std::size_t step : {1, 2, 3, 7, 16}) {
        require(framesOf(stream, step) == frames);
        require(framesOf(frames, step) == frames); // valid frames are deframed to themselves
    }
    return 0;
}
