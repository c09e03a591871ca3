#include "bench/gatewayProcess.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace vexmor::Bench
{
namespace
{
/// Answers the messages of a client over the socket that they came from.
class CAnswering
{
public:
    CAnswering(EProtocol protocol, int socket, const SLanguage& language)
        : m_protocol(protocol), m_socket(socket), m_language(language), m_buffer(READ_SIZE)
    {
    }

    /// Returns when the client has closed the connection; over UDP never.
    void run()
    {
        const OnMessage onMessage = [this](const SMessage& message) { answer(message); };
        for (;;) {
            m_clientSize = sizeof m_client;
            const ssize_t got = recvfrom(m_socket, m_buffer.data() + m_kept, m_buffer.size() - m_kept, 0,
                                         reinterpret_cast<sockaddr*>(&m_client), &m_clientSize);
            if (got <= 0) {
                return;
            }
            const std::size_t count = m_kept + static_cast<std::size_t>(got);
            m_answer.clear();
            const std::size_t used = m_language.parse(m_buffer.data(), count, onMessage);
            send(m_answer);
            m_kept = count - used;
            std::memmove(m_buffer.data(), m_buffer.data() + used, m_kept);
        }
    }

private:
    void answer(const SMessage& message)
    {
        if (message.id == ID_ECHO) {
            m_language.append(message, m_answer);
        } else if (message.id == ID_BURST) {
            const int count = message.data[0] << 8 | message.data[1];
            for (int i = 0; i < count; ++i) {
                m_language.append(burstMessage(i), m_answer);
            }
        }
    }

    /// Over TCP in one piece, over UDP one datagram per frame.
    void send(const std::vector<std::uint8_t>& bytes)
    {
        const bool udp = m_protocol == EProtocol::eUdp;
        const std::size_t step = udp ? FRAME_SIZE : bytes.size();
        for (std::size_t offset = 0; offset < bytes.size(); offset += step) {
            sendto(m_socket, bytes.data() + offset, step, MSG_NOSIGNAL,
                   udp ? reinterpret_cast<const sockaddr*>(&m_client) : nullptr, udp ? m_clientSize : 0);
        }
    }

    const EProtocol m_protocol;
    const int m_socket;
    const SLanguage& m_language;
    std::vector<std::uint8_t> m_buffer;
    std::size_t m_kept = 0;
    std::vector<std::uint8_t> m_answer; ///< Bytes to be sent after the current read.
    sockaddr_in m_client{};
    socklen_t m_clientSize = 0;
};

void serve(EProtocol protocol, int socket, const SLanguage& language)
{
    if (protocol == EProtocol::eUdp) {
        CAnswering(protocol, socket, language).run();
        return;
    }
    for (;;) {
        const int client = accept(socket, nullptr, nullptr);
        check(client >= 0, "accept");
        setNoDelay(client);
        CAnswering(protocol, client, language).run();
        ::close(client);
    }
}

void appendFrame(const SMessage& message, std::vector<std::uint8_t>& bytes)
{
    bytes.resize(bytes.size() + FRAME_SIZE);
    writeFrame(message, &bytes[bytes.size() - FRAME_SIZE]);
}

std::size_t parse(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage)
{
    return parseFrames(bytes, count, onMessage);
}
} // namespace

const SLanguage RM_LANGUAGE{appendFrame, parse};

CGatewayProcess::CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language)
{
    const SLoopbackSocket own = bindToLoopback(protocol);
    m_port = own.port;
    m_process.emplace(processor, [&] { serve(protocol, own.socket, language); });
    ::close(own.socket);
}

} // namespace vexmor::Bench
