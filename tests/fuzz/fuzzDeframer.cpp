// Any bytes, cut anywhere, give the same frames; and a frame's reply is read without a look outside it.
#include "InterfaceT93/gatewayReplies.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

using namespace vexmor::Cim;

namespace
{
using Bytes = std::vector<std::uint8_t>;

void interpret(const SRmFrame& frame)
{
    const CCanMessage message = canMessageOfFrame(frame);
    QString version;
    if (message.length() > 8 || message.id().value() > 0x7FF ||
        (firmwareVersionOfReply(frame, version) == EFirmwareReply::eVersion && version.isEmpty())) {
        std::abort();
    }
    firmwareVersionOfIdentification(frame, version);
}

/// The frames in a stream that comes in pieces of `step` bytes, framed anew one behind the other.
Bytes framesOf(const Bytes& stream, std::size_t step, int& wrongChecksums)
{
    Bytes frames;
    CRmDeframer deframer;
    for (std::size_t offset = 0; offset < stream.size(); offset += step) {
        // A copy of its own size, so that a byte read behind it is seen.
        const Bytes piece(&stream[offset], &stream[offset] + std::min(step, stream.size() - offset));
        deframer.feed(
            piece.data(), piece.size(),
            [&](const SRmFrame& frame) {
                interpret(frame);
                std::uint8_t buffer[RM_BUFFER_SIZE];
                frames.insert(frames.end(), buffer,
                              buffer + rmFrameBytes(frame.command, frame.payload.data(), frame.payloadLength, buffer));
                return true;
            },
            [&wrongChecksums] { return ++wrongChecksums > 0; });
    }
    return frames;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const Bytes stream(bytes, bytes + count);
    int wrongWhole = 0;
    const Bytes frames = framesOf(stream, RM_BUFFER_SIZE, wrongWhole);
    for (const std::size_t step : {1, 2, 3, 7, 16}) {
        int wrong = 0;
        if (framesOf(stream, step, wrong) != frames || wrong != wrongWhole) {
            std::abort();
        }
    }
    int none = 0;
    if (framesOf(frames, RM_BUFFER_SIZE, none) != frames || none != 0) {
        std::abort();
    }
    return 0;
}
