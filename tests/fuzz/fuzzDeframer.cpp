// Deframes any bytes. They must give the same frames wherever they are cut, and must not hide a valid frame after them.
// From any frame, the driver must make a message that a bus can carry.
#include "InterfaceT93/gatewayReplies.h"
#include "fuzz/require.h"

#include <algorithm>
#include <vector>

using namespace vexmor;
using namespace vexmor::Cim;

namespace
{
using Bytes = std::vector<std::uint8_t>;

/// Returns the frames of a stream that arrives in pieces of `step` bytes, each framed again, and another wrong frame
/// for each with a wrong checksum.
Bytes framesOf(const Bytes& stream, std::size_t step)
{
    static const Bytes WRONG{RM_START_OF_FRAME, 1, RM_CMD_FIRMWARE_VERSION, 0xFF};
    Bytes frames;
    const auto onWrong = [&frames] { return frames.insert(frames.end(), WRONG.begin(), WRONG.end()), true; };
    const auto onFrame = [&frames](const SRmFrame& frame) {
        const CCanMessage message = canMessageOfFrame(frame);
        require(message.id().value() <= 0x7FF && message.length() <= 8);
        QString version;
        firmwareVersionOfReply(frame, version);
        firmwareVersionOfIdentification(frame, version);
        std::uint8_t out[RM_BUFFER_SIZE];
        frames.insert(frames.end(), out, out + rmFrameBytes(frame.command, frame.payload, frame.payloadLength, out));
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
