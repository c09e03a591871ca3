// What callgrind counts: frames through the whole plugin in a single process, so that the number of instructions is the
// same every time. Run by script/instructions. Only what lies between the toggles is counted.
#include "bench/links.h"
#include "bench/processes.h"

#include <QCoreApplication>

#include <sys/socket.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace vexmor::Bench;

namespace
{
constexpr int FRAMES = 20000;
constexpr int BATCH = 100;        ///< frames that one socket read brings
constexpr int WARM_UP_TURNS = 20; ///< until the heap, Qt's caches and the dynamic linker have done their part

/// The plugin, connected to a socket of this process that stands for the gateway.
class CLoop
{
public:
    CLoop() : m_listener(bindToLoopback(EProtocol::eTcp)), link(EProtocol::eTcp, m_listener.port)
    {
        m_gateway = accept(m_listener.socket, nullptr, nullptr);
        check(m_gateway >= 0, "accept");
        setNoDelay(m_gateway);
    }

    /// Puts frames into the plugin's socket, where they lie when this returns.
    void deliver(int count)
    {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count) * FRAME_SIZE);
        for (int i = 0; i < count; ++i) {
            writeFrame(burstMessage(i), &bytes[static_cast<std::size_t>(i) * FRAME_SIZE]);
        }
        check(::send(m_gateway, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
              "send");
    }

    /// Takes what the plugin has sent.
    void swallow()
    {
        std::vector<std::uint8_t> bytes(READ_SIZE);
        while (::recv(m_gateway, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
    }

private:
    const SLoopbackSocket m_listener;
    int m_gateway = -1;

public:
    CPluginLink link;
};

template <typename Prepare, typename Counted>
void count(int turns, Prepare&& prepare, Counted&& counted)
{
    for (int turn = 0; turn < WARM_UP_TURNS + turns; ++turn) {
        prepare();
        if (turn >= WARM_UP_TURNS) {
            CALLGRIND_TOGGLE_COLLECT;
        }
        counted();
        if (turn >= WARM_UP_TURNS) {
            CALLGRIND_TOGGLE_COLLECT;
        }
    }
}

void run(const std::string& what)
{
    CLoop loop;
    if (what == "receive") {
        count(
            FRAMES / BATCH, [&] { loop.deliver(BATCH); }, [&] { loop.link.receive(BATCH); });
    } else if (what == "receive-single") {
        count(
            FRAMES, [&] { loop.deliver(1); }, [&] { loop.link.receive(1); });
    } else if (what == "send") {
        const SMessage message{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};
        count(
            FRAMES / BATCH, [&] { loop.swallow(); }, [&] { loop.link.sendBurst(message, BATCH); });
    } else {
        throw std::runtime_error("receive, receive-single or send");
    }
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    std::thread([] {}).join(); // as most hosts, a process with threads
    return exitCodeOf("instructions", [&] {
        run(argc > 1 ? argv[1] : "");
        std::printf("%d\n", FRAMES);
        return true;
    });
}
