// What the parts of the driver cost by themselves, beside copying the same bytes: CPU time for a frame of 8 data bytes,
// which is 15 bytes on the wire. Prints a table in Markdown; takes the options of Google Benchmark.
#include "InterfaceT93/canMsgQueue.h"
#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/rmFrame.h"
#include "bench/measuring.h"
#include "bench/wire.h"

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
/// Messages stored before the first is taken: about what one socket read brings.
constexpr int BATCH = 100;
constexpr const char* COPY = "memcpy";

const CCanMessage MESSAGE(CCanId::fromValue(0x123), 8, 1, 2, 3, 4, 5, 6, 7, 8);

std::vector<std::uint8_t> stream()
{
    std::vector<std::uint8_t> bytes(STREAM_FRAMES * FRAME_SIZE);
    for (int number = 0; number < STREAM_FRAMES; ++number) {
        writeFrame(burstMessage(number), &bytes[static_cast<std::size_t>(number) * FRAME_SIZE]);
    }
    return bytes;
}

template <typename Value>
void use(const Value& value)
{
    benchmark::DoNotOptimize(&value);
    benchmark::ClobberMemory();
}

/// Measures an action that handles so many frames.
template <typename Action>
void run(benchmark::State& state, int frames, Action&& action)
{
    for (auto _ : state) {
        action();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

/// The bytes of the frames, copied frame by frame: the least that handling them can cost.
void copy(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = stream();
    std::uint8_t frame[FRAME_SIZE];
    run(state, STREAM_FRAMES, [&] {
        for (std::size_t offset = 0; offset < bytes.size(); offset += FRAME_SIZE) {
            std::memcpy(frame, bytes.data() + offset, FRAME_SIZE);
            use(frame);
        }
    });
}
BENCHMARK(copy)->Name(COPY);

void framer(benchmark::State& state)
{
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    std::uint8_t frame[RM_BUFFER_SIZE];
    run(state, 1, [&] {
        txRmFramer(request, &MESSAGE, frame);
        use(frame);
    });
}
BENCHMARK(framer);

/// The argument is the size of the chunks that the stream comes in.
void deframer(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = stream();
    const auto chunk = static_cast<std::size_t>(state.range(0));
    CRmDeframer deframer;
    std::int64_t frames = 0;
    const auto onFrame = [&frames](const SRmFrame& frame) {
        use(frame);
        ++frames;
        return true;
    };
    run(state, STREAM_FRAMES, [&] {
        for (std::size_t offset = 0; offset < bytes.size(); offset += chunk) {
            deframer.feed(bytes.data() + offset, std::min(chunk, bytes.size() - offset), onFrame, [] { return true; });
        }
    });
    if (frames != state.iterations() * STREAM_FRAMES) {
        state.SkipWithError("frames lost");
    }
}
BENCHMARK(deframer)->ArgName("chunk")->Arg(1600)->Arg(65536)->Arg(7)->Arg(1);

void messageOfFrame(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes = stream();
    std::uint64_t sum = 0;
    run(state, STREAM_FRAMES, [&] {
        for (std::size_t offset = 0; offset < bytes.size(); offset += FRAME_SIZE) {
            SRmFrame
                frame; // as the deframer hands it on: behind start marker, length and command, before checksum and end
            frame.payloadLength = FRAME_SIZE - 5;
            frame.payload = &bytes[offset + 3];
            const CCanMessage one = canMessageOfFrame(frame);
            use(one);
            sum += one.length();
        }
    });
    if (sum != static_cast<std::uint64_t>(state.iterations()) * STREAM_FRAMES * DATA_SIZE) {
        state.SkipWithError("messages cut");
    }
}
BENCHMARK(messageOfFrame);

/// Stores a batch and takes it again; the queue holds its lock for each store and each take.
template <typename Buffer>
void storeAndTake(benchmark::State& state, Buffer& buffer)
{
    CCanMessage out;
    run(state, BATCH, [&] {
        for (int i = 0; i < BATCH; ++i) {
            buffer.store(MESSAGE);
        }
        for (int i = 0; i < BATCH; ++i) {
            buffer.take(out);
            use(out);
        }
    });
}

void ring(benchmark::State& state)
{
    const auto ring = std::make_unique<CCanMsgRing>();
    storeAndTake(state, *ring);
}
BENCHMARK(ring)->Name("ring, store and take");

void queue(benchmark::State& state)
{
    CCanMsgQueue queue;
    queue.create();
    storeAndTake(state, queue);
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
        if (times.empty()) { // aggregates, or a failure
            return;
        }
        const auto& [name, arguments] = std::tie(runs.front().run_name.function_name, runs.front().run_name.args);
        const double time = median(times);
        m_copied = name == COPY ? time : m_copied;
        m_table.add({name + (arguments.empty() ? "" : ", " + arguments), figure(time), figure(time / FRAME_SIZE),
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
