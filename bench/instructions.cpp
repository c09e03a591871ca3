// The program that script/instructions measures with callgrind: frames pass through the whole plugin in a single
// process, so that the number of instructions is the same every time. Only instructions between two calls of
// CALLGRIND_TOGGLE_COLLECT are counted.
#include "bench/links.h"
#include "bench/measuring.h"

#include <QCoreApplication>

#include <sys/socket.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <thread>

using namespace vexmor::Bench;

namespace
{
constexpr int FRAMES = 20000;
constexpr int BATCH = 100; ///< Frames that arrive in one read of the socket.
constexpr int WARM_UP_TURNS = 20;
const SMessage SWALLOWED{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};

/// Sends frames to the plugin. They have arrived at its socket when this function returns.
void deliver(int gateway, int count)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count) * FRAME_SIZE);
    for (int i = 0; i < count; ++i) {
        writeFrame(burstMessage(i), &bytes[static_cast<std::size_t>(i) * FRAME_SIZE]);
    }
    check(::send(gateway, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()), "send");
}

/// Reads what the plugin has sent.
void swallow(int gateway)
{
    std::vector<std::uint8_t> bytes(READ_SIZE);
    while (::recv(gateway, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
    }
}
} // namespace

/// Usage: instructions receive, receive-single or send. Prints the number of frames.
int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    std::thread([] {}).join(); // makes this a process with threads, like most host applications
    const std::string what = argc == 2 ? argv[1] : "";
    const int framesPerTurn = what == "receive-single" ? 1 : BATCH;
    const CLoopbackSocket listener(EProtocol::eTcp); // takes the place of the gateway
    const auto link = makePluginLink(EProtocol::eTcp, listener.port());
    const int gateway = listener.acceptClient();
    // The turns below 0 warm up heap, caches and the dynamic linker.
    for (int turn = -WARM_UP_TURNS; turn < FRAMES / framesPerTurn; ++turn) {
        what == "send" ? swallow(gateway) : deliver(gateway, framesPerTurn);
        if (turn >= 0) {
            CALLGRIND_TOGGLE_COLLECT;
        }
        if (what == "send") {
            repeat(BATCH, [&] { link->send(SWALLOWED); });
        } else {
            link->receive(framesPerTurn);
        }
        if (turn >= 0) {
            CALLGRIND_TOGGLE_COLLECT;
        }
    }
    std::printf("%d\n", FRAMES);
    return 0;
}
