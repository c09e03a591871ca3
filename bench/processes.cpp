#include "bench/processes.h"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vexmor::Bench
{
namespace
{
constexpr int BACKLOG = 256;

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int newSocket(EProtocol protocol)
{
    const int socket = ::socket(AF_INET, (protocol == EProtocol::eTcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
    check(socket >= 0, "socket");
    return socket;
}

void setNoDelay(int socket)
{
    const int on = 1;
    check(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "TCP_NODELAY");
}

/// Answers the messages of a client over the socket that they came from: over TCP in one piece, over UDP one datagram
/// per frame. Returns when the client has closed the connection; over UDP never.
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
    auto* const address = reinterpret_cast<sockaddr*>(&client);
    socklen_t addressSize = sizeof client; // the first call sets it to 0 over TCP
    for (std::size_t kept = 0;;) {
        const ssize_t got = recvfrom(socket, buffer.data() + kept, buffer.size() - kept, 0, address, &addressSize);
        if (got <= 0) {
            return;
        }
        const std::size_t count = kept + static_cast<std::size_t>(got);
        answer.clear();
        const std::size_t used = language.parse(buffer.data(), count, onMessage);
        const std::size_t step = protocol == EProtocol::eUdp ? FRAME_SIZE : answer.size();
        for (std::size_t offset = 0; offset < answer.size(); offset += step) {
            sendto(socket, answer.data() + offset, step, MSG_NOSIGNAL, address, addressSize);
        }
        kept = count - used;
        std::memmove(buffer.data(), buffer.data() + used, kept);
    }
}

void serve(EProtocol protocol, const CLoopbackSocket& socket, const SLanguage& language)
{
    if (protocol == EProtocol::eUdp) {
        serveClient(protocol, socket.descriptor(), language);
    }
    for (;;) {
        const int client = socket.acceptClient();
        serveClient(protocol, client, language);
        ::close(client);
    }
}

void appendFrame(const SMessage& message, std::vector<std::uint8_t>& bytes)
{
    bytes.resize(bytes.size() + FRAME_SIZE);
    writeFrame(message, &bytes[bytes.size() - FRAME_SIZE]);
}
} // namespace

void check(bool ok, const char* what)
{
    if (!ok) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void stayOn(int processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    check(sched_setaffinity(0, sizeof set, &set) == 0, "sched_setaffinity");
}

CLoopbackSocket::CLoopbackSocket(EProtocol protocol) : m_socket(newSocket(protocol))
{
    const sockaddr_in address = loopback(0);
    check(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    check(protocol == EProtocol::eUdp || listen(m_socket, BACKLOG) == 0, "listen");
}

CLoopbackSocket::~CLoopbackSocket()
{
    ::close(m_socket);
}

std::uint16_t CLoopbackSocket::port() const
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    check(getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    return ntohs(address.sin_port);
}

int CLoopbackSocket::acceptClient() const
{
    const int client = accept(m_socket, nullptr, nullptr);
    check(client >= 0, "accept");
    setNoDelay(client);
    return client;
}

int connectToLoopback(EProtocol protocol, std::uint16_t port)
{
    const int socket = newSocket(protocol);
    const sockaddr_in address = loopback(port);
    check(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "connect");
    if (protocol == EProtocol::eTcp) {
        setNoDelay(socket);
    }
    return socket;
}

CChildProcess::CChildProcess(int processor, const std::function<void()>& run)
{
    const pid_t parent = getpid();
    m_process = fork();
    check(m_process >= 0, "fork");
    if (m_process != 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) {
        [&]() noexcept { // an exception ends this process with its text
            stayOn(processor);
            run();
        }();
    }
    _exit(0);
}

CChildProcess::~CChildProcess()
{
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
}

void CChildProcess::finish()
{
    int status = -1;
    waitpid(std::exchange(m_process, -1), &status, 0);
    if (status != 0) {
        throw std::runtime_error("a process of this program failed");
    }
}

const SLanguage RM_LANGUAGE{appendFrame, parseFrames<const OnMessage&>};

CGatewayProcess::CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language)
    : m_socket(protocol), m_process(processor, [&] { serve(protocol, m_socket, language); })
{
}

} // namespace vexmor::Bench
