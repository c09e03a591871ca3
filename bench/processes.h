#pragma once

#include "bench/wire.h"

#include <sys/types.h>

#include <functional>

/// Processes of their own on processors of their own, and the sockets between them.
namespace vexmor::Bench
{

/// Throws std::system_error with errno and what was tried, unless ok.
void check(bool ok, const char* what);

/// Keeps the calling process on one processor. Throws std::system_error when it may not run there.
void stayOn(int processor);

struct SLoopbackSocket {
    int socket = -1; ///< belongs to the caller
    std::uint16_t port = 0;
};
/// A socket bound to 127.0.0.1 and a free port, for TCP listening. Throws std::system_error.
SLoopbackSocket bindToLoopback(EProtocol protocol);
/// A socket that is connected to a port of 127.0.0.1, over TCP without delay; it belongs to the caller. Throws
/// std::system_error.
int connectToLoopback(EProtocol protocol, std::uint16_t port);
/// Small frames leave a TCP socket at once.
void setNoDelay(int socket);

/// A process that runs a function on one processor. It ends with the function, with this object, or with the process
/// that made it.
class CChildProcess
{
public:
    /// Throws std::system_error when no process can be made.
    CChildProcess(int processor, const std::function<void()>& run);
    ~CChildProcess();
    /// Waits until the function has returned. Throws std::runtime_error when it threw.
    void finish();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

private:
    pid_t m_process = -1;
};

} // namespace vexmor::Bench
