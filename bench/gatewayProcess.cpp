#include "bench/gatewayProcess.h"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

namespace vexmor::Bench
{
namespace
{
void check(bool ok, const char* what)
{
    if (!ok) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// What a client's messages ask for, answered over the same socket.
class CAnswering
{
public:
    CAnswering(EProtocol protocol, int socket, const SLanguage& language)
        : m_protocol(protocol), m_socket(socket), m_language(language), m_buffer(READ_SIZE)
    {
    }

    /// Until the client goes; UDP clients never go.
    void run()
    {
        const OnMessage onMessage = [this](const SMessage& message) { answer(message); };
        if (*m_language.greeting != '\0') {
            ::send(m_socket, m_language.greeting, std::strlen(m_language.greeting), MSG_NOSIGNAL);
        }
        for (;;) {
            m_clientSize = sizeof m_client;
            const ssize_t got = recvfrom(m_socket, m_buffer.data() + m_kept, m_buffer.size() - m_kept, 0,
                                         reinterpret_cast<sockaddr*>(&m_client), &m_clientSize);
            if (got <= 0) {
                return;
            }
            const std::size_t count = m_kept + static_cast<std::size_t>(got);
            m_answer.clear();
            const std::size_t used = m_language.parse(m_buffer.data(), count, onMessage, m_answer);
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
                SMessage one{static_cast<std::uint16_t>(i & 0x7FF), {}};
                one.data.fill(static_cast<std::uint8_t>(i));
                m_language.append(one, m_answer);
            }
        }
    }

    /// Over TCP all at once, over UDP a datagram for each frame.
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
    std::vector<std::uint8_t> m_answer; ///< to what one read brought
    sockaddr_in m_client{};
    socklen_t m_clientSize = 0;
};

[[noreturn]] void serve(EProtocol protocol, int socket, const SLanguage& language)
{
    try {
        if (protocol == EProtocol::eUdp) {
            CAnswering(protocol, socket, language).run();
        }
        for (;;) {
            const int client = accept(socket, nullptr, nullptr);
            if (client < 0) {
                break;
            }
            const int on = 1;
            setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            CAnswering(protocol, client, language).run();
            ::close(client);
        }
    } catch (const std::exception&) { // the host notices that nothing comes
    }
    _exit(1);
}
} // namespace

CGatewayProcess::CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language)
{
    const int socket = ::socket(AF_INET, (protocol == EProtocol::eTcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
    check(socket >= 0, "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    check(bind(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0, "bind");
    check(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    check(protocol == EProtocol::eUdp || listen(socket, 1) == 0, "listen");
    m_port = ntohs(address.sin_port);

    const pid_t parent = getpid();
    m_process = fork();
    check(m_process >= 0, "fork");
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        stayOn(processor);
        serve(protocol, socket, language);
    }
    ::close(socket);
}

CGatewayProcess::~CGatewayProcess()
{
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

void stayOn(int processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    check(sched_setaffinity(0, sizeof set, &set) == 0, "sched_setaffinity");
}

} // namespace vexmor::Bench
