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
#include <cstdio>
#include <exception>
#include <stdexcept>
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

SLoopbackSocket bindToLoopback(EProtocol protocol)
{
    const int socket = newSocket(protocol);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    check(bind(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0, "bind");
    check(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    check(protocol == EProtocol::eUdp || listen(socket, BACKLOG) == 0, "listen");
    return {socket, ntohs(address.sin_port)};
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

void setNoDelay(int socket)
{
    const int on = 1;
    check(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "TCP_NODELAY");
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
    if (getppid() != parent) {
        _exit(1);
    }
    try {
        stayOn(processor);
        run();
        _exit(0);
    } catch (const std::exception& error) { // the other side notices that nothing comes
        std::fprintf(stderr, "%s\n", error.what());
    }
    _exit(1);
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

} // namespace vexmor::Bench
