#include "bench/rawLink.h"

#include "bench/processes.h"

#include <sys/socket.h>
#include <unistd.h>

namespace vexmor::Bench
{
namespace
{
/// Makes the compiler believe that somebody looks at the value.
template <typename Value>
void use(const Value& value)
{
    asm volatile("" : : "r"(&value) : "memory");
}
} // namespace

CRawLink::CRawLink(EProtocol protocol, std::uint16_t port)
    : m_socket(connectToLoopback(protocol, port)), m_buffer(READ_SIZE)
{
    const timeval patience{PATIENCE_S, 0};
    check(setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0, "SO_RCVTIMEO");
}

CRawLink::~CRawLink()
{
    ::close(m_socket);
}

void CRawLink::send(const SMessage& message)
{
    std::uint8_t frame[FRAME_SIZE];
    writeFrame(message, frame);
    sendBytes(frame, sizeof frame);
}

void CRawLink::sendJoined(const SMessage& message, int count)
{
    std::uint8_t frames[READ_SIZE];
    for (int i = 0; i < count; ++i) {
        writeFrame(message, frames + static_cast<std::size_t>(i) * FRAME_SIZE);
    }
    sendBytes(frames, static_cast<std::size_t>(count) * FRAME_SIZE);
}

void CRawLink::sendBytes(const std::uint8_t* bytes, std::size_t count)
{
    check(::send(m_socket, bytes, count, MSG_NOSIGNAL) == static_cast<ssize_t>(count), "send");
}

void CRawLink::receive(int count)
{
    while (count > 0) {
        const ssize_t got = ::recv(m_socket, m_buffer.data() + m_kept, m_buffer.size() - m_kept, 0);
        check(got > 0, "recv");
        const std::size_t available = m_kept + static_cast<std::size_t>(got);
        const std::size_t used = parseFrames(m_buffer.data(), available, [&count](const SMessage& message) {
            use(message);
            --count;
        });
        m_kept = available - used;
        std::memmove(m_buffer.data(), m_buffer.data() + used, m_kept);
    }
}

} // namespace vexmor::Bench
