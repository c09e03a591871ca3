// What callgrind counts: frames through the whole plugin in a single process, so that the number of instructions is the
// same every time. Run by script/instructions. Only what lies between the toggles is counted.
#include "bench/links.h"
#include "bench/measuring.h"
#include "bench/processes.h"

#include <QCoreApplication>

#include <sys/socket.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace vexmor::Bench;

namespace
{
constexpr int FRAMES = 20000;
constexpr int BATCH = 100; ///< frames that one socket read brings
constexpr int WARM_UP_TURNS = 20;

/// Puts frames into the plugin's socket, where they lie when this returns.
void deliver(int gateway, int count)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count) * FRAME_SIZE);
    for (int i = 0; i < count; ++i) {
        writeFrame(burstMessage(i), &bytes[static_cast<std::size_t>(i) * FRAME_SIZE]);
    }
    check(::send(gateway, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()), "send");
}

/// Takes what the plugin has sent.
void swallow(int gateway)
{
    std::vector<std::uint8_t> bytes(READ_SIZE);
    while (::recv(gateway, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
    }
}

/// Counts an action in FRAMES / framesATurn turns, when those before it have warmed up heap, caches and the dynamic
/// linker.
template <typename Prepare, typename Counted>
void count(int framesATurn, Prepare&& prepare, Counted&& counted)
{
    for (int turn = -WARM_UP_TURNS; turn < FRAMES / framesATurn; ++turn) {
        prepare();
        if (turn == 0) {
            CALLGRIND_ZERO_STATS;
        }
        CALLGRIND_TOGGLE_COLLECT;
        counted();
        CALLGRIND_TOGGLE_COLLECT;
    }
}

/// The plugin is connected to a socket of this process that stands for the gateway.
bool run(const std::string& what)
{
    const SLoopbackSocket listener = bindToLoopback(EProtocol::eTcp);
    const auto link = makePluginLink(EProtocol::eTcp, listener.port);
    const int gateway = accept(listener.socket, nullptr, nullptr);
    check(gateway >= 0, "accept");
    setNoDelay(gateway);
    const int framesATurn = what == "receive-single" ? 1 : BATCH;
    if (what == "send") {
        const SMessage message{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};
        count(
            BATCH, [&] { swallow(gateway); }, [&] { repeat(BATCH, [&] { link->send(message); }); });
    } else {
        count(
            framesATurn, [&] { deliver(gateway, framesATurn); }, [&] { link->receive(framesATurn); });
    }
    std::printf("%d\n", FRAMES);
    return true;
}
} // namespace

/// instructions receive | receive-single | send
int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    std::thread([] {}).join(); // as most hosts, a process with threads
    return exitCodeOf("instructions", [&] { return argc == 2 && run(argv[1]); });
}
