// What the parts of the driver cost by themselves, beside copying the same bytes: CPU time for a frame of 8 data bytes,
// which is 15 bytes on the wire. Prints a table in Markdown; takes the options of Google Benchmark.
#include "InterfaceT93/canMsgQueue.h"
#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/rmFrame.h"
#include "bench/measuring.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

using namespace vexmor::Cim;
using namespace vexmor::Bench;

namespace
{
constexpr int STREAM_FRAMES = 8000;
constexpr int FRAME_BYTES = 15;
/// Messages stored before the first is taken: about what one socket read brings.
constexpr int BATCH = 100;
constexpr const char* COPY = "memcpy";

CCanMessage message(int number)
{
    unsigned char data[8];
    for (int i = 0; i < 8; ++i) {
        data[i] = static_cast<unsigned char>(number * 31 + i * 7);
    }
    return CCanMessage(CCanId::fromValue(static_cast<std::uint16_t>(number & 0x7FF)), sizeof data, data);
}

std::size_t frameOf(const CCanMessage& message, std::uint8_t* frame)
{
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    return txRmFramer(request, &message, frame);
}

std::vector<std::uint8_t> stream()
{
    std::vector<std::uint8_t> bytes;
    for (int number = 0; number < STREAM_FRAMES; ++number) {
        std::uint8_t frame[RM_BUFFER_SIZE];
        bytes.insert(bytes.end(), frame, frame + frameOf(message(number), frame));
    }
    return bytes;
}

void setFrames(benchmark::State& state, std::int64_t framesPerIteration)
{
    state.SetItemsProcessed(state.iterations() * framesPerIteration);
}

/// The bytes of the frames, copied frame by frame: the least that handling them can cost.
void copy(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = stream();
    std::uint8_t frame[FRAME_BYTES];
    for (auto _ : state) {
        for (std::size_t offset = 0; offset < bytes.size(); offset += FRAME_BYTES) {
            std::memcpy(frame, bytes.data() + offset, FRAME_BYTES);
            benchmark::DoNotOptimize(&frame);
            benchmark::ClobberMemory();
        }
    }
    setFrames(state, STREAM_FRAMES);
}
BENCHMARK(copy)->Name(COPY);

void framer(benchmark::State& state)
{
    const CCanMessage one = message(0x123);
    std::uint8_t frame[RM_BUFFER_SIZE];
    for (auto _ : state) {
        benchmark::DoNotOptimize(frameOf(one, frame));
        benchmark::ClobberMemory();
    }
    setFrames(state, 1);
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
        benchmark::ClobberMemory();
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
    setFrames(state, STREAM_FRAMES);
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
            benchmark::ClobberMemory();
        }
    }
    setFrames(state, static_cast<std::int64_t>(frames.size()));
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
            benchmark::ClobberMemory();
        }
    }
    setFrames(state, BATCH);
}

void ring(benchmark::State& state)
{
    const auto ring = std::make_unique<CCanMsgRing>();
    storeAndTake(
        state, [&ring](const CCanMessage& in) { ring->store(in); }, [&ring](CCanMessage& out) { ring->take(out); });
}
BENCHMARK(ring)->Name("ring, store and take");

void queue(benchmark::State& state)
{
    CCanMsgQueue queue;
    queue.create();
    storeAndTake(
        state, [&queue](const CCanMessage& in) { queue.store(in); }, [&queue](CCanMessage& out) { queue.take(out); });
}
BENCHMARK(queue)->Name("queue (ring behind its lock), store and take");

/// Prints the medians of all repetitions as a table.
class CTableReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    /// All repetitions of one part.
    void ReportRuns(const std::vector<Run>& runs) override
    {
        Values times;
        for (const Run& run : runs) {
            m_failed |= run.error_occurred;
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times.push_back(1e9 / run.counters.at("items_per_second").value);
            }
        }
        const auto& [name, arguments] = std::tie(runs.front().run_name.function_name, runs.front().run_name.args);
        const double time = median(times);
        m_copied = name == COPY ? time : m_copied;
        m_table.add({name + (arguments.empty() ? "" : ", " + arguments), figure(time), figure(time / FRAME_BYTES),
                     m_copied > 0 ? figure(time / m_copied) : ""});
    }

    bool failed() const { return m_failed; }

private:
    const CTable m_table{{"part by itself", "ns a frame", "ns a byte", "times memcpy"}, 44};
    double m_copied = 0;
    bool m_failed = false;
};
} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    std::thread([] {}).join(); // as most hosts, a process with threads: locks cost more there
    CTableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.failed() ? 1 : 0;
}
