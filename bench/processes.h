#pragma once

#include "bench/wire.h"

#include <sys/types.h>

#include <functional>
#include <vector>

/// Child processes, each of which runs on one processor, and the sockets between them.
namespace vexmor::Bench
{

/// Throws std::system_error with errno and the name of the attempt, unless `ok` is true.
void check(bool ok, const char* what);

/// Keeps the calling process on one processor. Throws std::system_error when it may not run there.
void stayOn(int processor);

/// A socket that is bound to 127.0.0.1 and a free port; a TCP socket also listens. Throws std::system_error when a call
/// fails.
class CLoopbackSocket
{
public:
    explicit CLoopbackSocket(EProtocol protocol);
    ~CLoopbackSocket();
    CLoopbackSocket(const CLoopbackSocket&) = delete;
    CLoopbackSocket& operator=(const CLoopbackSocket&) = delete;

    std::uint16_t port() const;
    int descriptor() const { return m_socket; }
    /// Waits for a TCP client and returns its socket, which sends small frames at once. The caller owns it.
    int acceptClient() const;

private:
    const int m_socket;
};
/// Returns a socket that is connected to a port of 127.0.0.1; over TCP it sends small frames at once. The caller owns
/// it. Throws std::system_error when a call fails.
int connectToLoopback(EProtocol protocol, std::uint16_t port);

/// A process that runs a function on one processor. It ends with the function, with this object, or with the process
/// that made it.
class CChildProcess
{
public:
    /// Throws std::system_error when no process can be made.
    CChildProcess(int processor, const std::function<void()>& run);
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;
    /// Waits until the function has returned. Throws std::runtime_error when it threw.
    void finish();

private:
    pid_t m_process;
};

using OnMessage = std::function<void(const SMessage&)>;

/// The format of messages on the wire.
struct SLanguage {
    /// Appends a message to the bytes that are sent to a client.
    void (*append)(const SMessage& message, std::vector<std::uint8_t>& bytes);
    /// Reads the whole messages that a client has sent, and returns the number of bytes used.
    std::size_t (*parse)(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage);
};
extern const SLanguage RM_LANGUAGE; ///< The RM frames of a T93.

/// The simplest gateway: a process with a plain socket on 127.0.0.1. The identifier of a CAN message decides what it
/// does (ID_SWALLOW, ID_ECHO and ID_BURST); it answers nothing else. It serves one client at a time.
class CGatewayProcess
{
public:
    CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language = RM_LANGUAGE);
    std::uint16_t port() const { return m_socket.port(); }

private:
    const CLoopbackSocket m_socket;
    const CChildProcess m_process;
};

} // namespace vexmor::Bench
