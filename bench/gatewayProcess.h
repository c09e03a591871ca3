#pragma once

#include "bench/processes.h"

#include <functional>
#include <optional>
#include <vector>

namespace vexmor::Bench
{

using OnMessage = std::function<void(const SMessage&)>;

/// What a gateway process speaks: the RM frames of a T93, or what other hosts expect of a gateway (peers/languages.h).
struct SLanguage {
    /// Sent to a client that connects; may be empty.
    const char* greeting;
    /// Appends a message to what is sent to a client.
    void (*append)(const SMessage& message, std::vector<std::uint8_t>& bytes);
    /// Takes what is whole out of what a client sent and gives the number of bytes used up. Requests other than
    /// messages are answered by appending to `reply`.
    std::size_t (*parse)(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage,
                         std::vector<std::uint8_t>& reply);
};
extern const SLanguage RM_LANGUAGE;

/// The least that can stand for a gateway: a process of its own with a plain socket on 127.0.0.1, which does with a CAN
/// message what the message's identifier says (wire.h) and answers nothing else. One client at a time; ends with this
/// object, or with the process that made it.
class CGatewayProcess
{
public:
    /// Runs on the given processor. Throws std::system_error when there is no socket or no process to be had.
    CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language = RM_LANGUAGE);

    std::uint16_t port() const { return m_port; }

private:
    std::uint16_t m_port = 0;
    std::optional<CChildProcess> m_process;
};

} // namespace vexmor::Bench
