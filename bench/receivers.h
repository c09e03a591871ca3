#pragma once

#include "bench/measuring.h"

#include <cstdint>

namespace vexmor::Bench
{

/// How a host takes the frames of many gateways in one thread.
enum class EReceiver {
    eEpoll,      ///< epoll and recv alone
    eQTcpSocket, ///< a QTcpSocket each, read on readyRead
    ePlugin      ///< an interface each, all drained every 10 ms
};

struct SReceived {
    SCost cost;               ///< of about a second
    std::uint64_t frames = 0; ///< taken in that time
    std::uint64_t lost = 0;   ///< left out of the sequences, since the start
    double heapKib = 0;       ///< of the process over that before the first connection
};

/// Connects so often to a port of 127.0.0.1, in a new process on the given processor, and receives for a while. Throws
/// std::runtime_error when the process fails. The first two parse the frames with the benchmark's own parser.
SReceived receiveInProcess(EReceiver receiver, std::uint16_t port, int gateways, int processor);

} // namespace vexmor::Bench
