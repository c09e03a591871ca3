#pragma once

#include "bench/processes.h"

#include <functional>
#include <optional>
#include <vector>

namespace vexmor::Bench
{

using OnMessage = std::function<void(const SMessage&)>;

/// How messages are written on the wire.
struct SLanguage {
    /// Appends a message to what is sent to a client.
    void (*append)(const SMessage& message, std::vector<std::uint8_t>& bytes);
    /// Takes whole messages out of what a client sent and returns the number of bytes used up.
    std::size_t (*parse)(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage);
};
extern const SLanguage RM_LANGUAGE; ///< The RM frames of a T93.

/// The least that can stand for a gateway: a process of its own with a plain socket on 127.0.0.1, which handles a CAN
/// message as the message's identifier says (wire.h) and answers nothing else. It serves one client at a time, and ends
/// with this object or with the process that made it.
class CGatewayProcess
{
public:
    /// Runs on the given processor. Throws std::system_error when no socket or no process can be made.
    CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language = RM_LANGUAGE);

    std::uint16_t port() const { return m_port; }

private:
    std::uint16_t m_port = 0;
    std::optional<CChildProcess> m_process;
};

} // namespace vexmor::Bench
