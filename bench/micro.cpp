// What the parts of the driver cost by themselves: CPU time a frame of 8 data bytes, in the column of the counter.
#include "InterfaceT93/canMsgQueue.h"
#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/rmFrame.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

using namespace vexmor::Cim;

namespace
{
constexpr int STREAM_FRAMES = 8000;
/// Messages stored before the first is taken: about what one socket read brings.
constexpr int BATCH = 100;

CCanMessage message(int number)
{
    CCanMessage result;
    result.setId(CCanId::fromValue(static_cast<std::uint16_t>(number & 0x7FF)));
    unsigned char data[8];
    for (int i = 0; i < 8; ++i) {
        data[i] = static_cast<unsigned char>(number * 31 + i * 7);
    }
    result.setData(0, sizeof data, data);
    return result;
}

std::vector<std::uint8_t> stream()
{
    std::vector<std::uint8_t> bytes;
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    for (int number = 0; number < STREAM_FRAMES; ++number) {
        const CCanMessage one = message(number);
        std::uint8_t frame[RM_BUFFER_SIZE];
        bytes.insert(bytes.end(), frame, frame + txRmFramer(request, &one, frame));
    }
    return bytes;
}

void setTimePerFrame(benchmark::State& state, std::int64_t framesPerIteration)
{
    state.counters["perFrame"] =
        benchmark::Counter(static_cast<double>(framesPerIteration),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void framer(benchmark::State& state)
{
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    const CCanMessage one = message(0x123);
    std::uint8_t frame[RM_BUFFER_SIZE];
    for (auto _ : state) {
        benchmark::DoNotOptimize(txRmFramer(request, &one, frame));
        benchmark::ClobberMemory();
    }
    setTimePerFrame(state, 1);
}
BENCHMARK(framer);

/// The argument is the size of the chunks that the stream comes in.
void deframer(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = stream();
    const auto chunk = static_cast<std::size_t>(state.range(0));
    CRmDeframer deframer;
    int frames = 0;
    const auto onFrame = [&frames](const SRmFrame& frame) {
        benchmark::DoNotOptimize(&frame);
        ++frames;
        return true;
    };
    for (auto _ : state) {
        frames = 0;
        for (std::size_t offset = 0; offset < bytes.size(); offset += chunk) {
            deframer.feed(bytes.data() + offset, std::min(chunk, bytes.size() - offset), onFrame, [] { return true; });
        }
        if (frames != STREAM_FRAMES) {
            state.SkipWithError("frames lost");
            break;
        }
    }
    setTimePerFrame(state, STREAM_FRAMES);
}
BENCHMARK(deframer)->ArgName("chunk")->Arg(1600)->Arg(65536)->Arg(7)->Arg(1);

void messageOfFrame(benchmark::State& state)
{
    std::vector<SRmFrame> frames;
    const std::vector<std::uint8_t> bytes = stream();
    CRmDeframer deframer;
    deframer.feed(
        bytes.data(), bytes.size(), [&frames](const SRmFrame& frame) { return frames.push_back(frame), true; },
        [] { return true; });
    for (auto _ : state) {
        for (const SRmFrame& frame : frames) {
            const CCanMessage one = canMessageOfFrame(frame);
            benchmark::DoNotOptimize(&one);
        }
    }
    setTimePerFrame(state, static_cast<std::int64_t>(frames.size()));
}
BENCHMARK(messageOfFrame);

/// Stores a batch and takes it again; with the queue, each store and each take holds the lock.
template <typename Store, typename Take>
void storeAndTake(benchmark::State& state, Store&& store, Take&& take)
{
    const CCanMessage in = message(0x123);
    CCanMessage out;
    for (auto _ : state) {
        for (int i = 0; i < BATCH; ++i) {
            store(in);
        }
        for (int i = 0; i < BATCH; ++i) {
            take(out);
            benchmark::DoNotOptimize(&out);
        }
    }
    setTimePerFrame(state, BATCH);
}

void ring(benchmark::State& state)
{
    const auto ring = std::make_unique<CCanMsgRing>();
    storeAndTake(
        state, [&ring](const CCanMessage& in) { ring->store(in); }, [&ring](CCanMessage& out) { ring->take(out); });
}
BENCHMARK(ring);

void queue(benchmark::State& state)
{
    CCanMsgQueue queue;
    queue.create();
    storeAndTake(
        state, [&queue](const CCanMessage& in) { queue.store(in); }, [&queue](CCanMessage& out) { queue.take(out); });
}
BENCHMARK(queue);
} // namespace

BENCHMARK_MAIN();
