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
/// Sends over TCP in one piece, over UDP one datagram per frame.
void sendTo(int socket, const std::vector<std::uint8_t>& bytes, const sockaddr_in* udpClient)
{
    const std::size_t step = udpClient != nullptr ? FRAME_SIZE : bytes.size();
    for (std::size_t offset = 0; offset < bytes.size(); offset += step) {
        sendto(socket, bytes.data() + offset, step, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(udpClient),
               udpClient != nullptr ? sizeof *udpClient : 0);
    }
}

/// Answers the messages of a client over the socket that they came from. Returns when the client has closed the
/// connection; over UDP never.
void serveClient(EProtocol protocol, int socket, const SLanguage& language)
{
    std::vector<std::uint8_t> buffer(READ_SIZE);
    std::vector<std::uint8_t> answer;
    const OnMessage onMessage = [&](const SMessage& message) {
        if (message.id == ID_ECHO) {
            language.append(message, answer);
        } else if (message.id == ID_BURST) {
            const int count = message.data[0] << 8 | message.data[1];
            for (int i = 0; i < count; ++i) {
                language.append(burstMessage(i), answer);
            }
        }
    };
    sockaddr_in client{};
    socklen_t clientSize = sizeof client;
    for (std::size_t kept = 0;;) {
        const ssize_t got = recvfrom(socket, buffer.data() + kept, buffer.size() - kept, 0,
                                     reinterpret_cast<sockaddr*>(&client), &clientSize);
        if (got <= 0) {
            return;
        }
        const std::size_t count = kept + static_cast<std::size_t>(got);
        answer.clear();
        const std::size_t used = language.parse(buffer.data(), count, onMessage);
        sendTo(socket, answer, protocol == EProtocol::eUdp ? &client : nullptr);
        kept = count - used;
        std::memmove(buffer.data(), buffer.data() + used, kept);
    }
}

void serve(EProtocol protocol, int socket, const SLanguage& language)
{
    if (protocol == EProtocol::eUdp) {
        serveClient(protocol, socket, language);
        return;
    }
    for (;;) {
        const int client = accept(socket, nullptr, nullptr);
        check(client >= 0, "accept");
        setNoDelay(client);
        serveClient(protocol, client, language);
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
