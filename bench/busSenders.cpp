#include "bench/busSenders.h"

#include "bench/measuring.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace vexmor::Bench
{
namespace
{
constexpr double TICK_NS = 1e9 / FRAMES_PER_SECOND;
/// Behind by so much, the process has lost the pace.
constexpr double MAX_LAG_NS = 50e6;
constexpr int SEND_BUFFER = 256 * 1024;

void sleepUntil(double time)
{
    timespec until{};
    until.tv_sec = static_cast<time_t>(time / 1e9);
    until.tv_nsec = static_cast<long>(time - static_cast<double>(until.tv_sec) * 1e9);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

class CBus
{
public:
    explicit CBus(int socket) : m_socket(socket)
    {
        setNoDelay(socket);
        check(setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER) == 0, "SO_SNDBUF");
    }

    /// False when the host has gone.
    bool deliver(int frames)
    {
        m_segment.resize(static_cast<std::size_t>(frames) * FRAME_SIZE);
        for (int i = 0; i < frames; ++i, ++m_sequence) {
            SMessage message{static_cast<std::uint16_t>(m_sequence & 0x7FF), {}};
            std::memcpy(message.data.data(), &m_sequence, sizeof m_sequence);
            writeFrame(message, m_segment.data() + static_cast<std::size_t>(i) * FRAME_SIZE);
        }
        const ssize_t sent = ::send(m_socket, m_segment.data(), m_segment.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return sent == static_cast<ssize_t>(m_segment.size()) || (sent < 0 && errno == EAGAIN);
    }

private:
    int m_socket;
    std::uint32_t m_sequence = 0;
    std::vector<std::uint8_t> m_segment;
};

void sendAtBusPace(int listener, int gateways, int framesPerSegment)
{
    std::vector<CBus> buses;
    for (int i = 0; i < gateways; ++i) {
        const int socket = accept(listener, nullptr, nullptr);
        check(socket >= 0, "accept");
        buses.emplace_back(socket);
    }
    prctl(PR_SET_TIMERSLACK, 1UL);
    double next = nanoseconds(CLOCK_MONOTONIC);
    for (std::size_t tick = 0;; ++tick) {
        sleepUntil(next);
        // In a tick each bus carries a frame; a gateway that joins several sends in every so many ticks.
        const auto step = static_cast<std::size_t>(framesPerSegment);
        for (std::size_t bus = tick % step; bus < buses.size(); bus += step) {
            if (!buses[bus].deliver(framesPerSegment)) {
                return;
            }
        }
        const double now = nanoseconds(CLOCK_MONOTONIC);
        next = now - next > MAX_LAG_NS ? now : next + TICK_NS;
    }
}
} // namespace

CBusSenders::CBusSenders(int gateways, int framesPerSegment, int processor)
{
    const SLoopbackSocket own = bindToLoopback(EProtocol::eTcp);
    m_port = own.port;
    m_process.emplace(processor, [&] { sendAtBusPace(own.socket, gateways, framesPerSegment); });
    ::close(own.socket);
}

} // namespace vexmor::Bench
