#pragma once

#include "bench/wire.h"

#include <functional>
#include <vector>

/// What a gateway process speaks: the RM frames of a T93, or what the peers' hosts expect of a gateway on a socket.
namespace vexmor::Bench
{

using OnMessage = std::function<void(const SMessage&)>;

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
/// The lines of Qt SerialBus's `virtualcan`: "can0:257##0102030405060708".
extern const SLanguage VIRTUALCAN_LANGUAGE;
/// The text of a socketcand server, to which python-can connects: "< send 101 8 1 2 3 4 5 6 7 8 >" from the client,
/// "< frame 101 0.0 0102030405060708 >" to it.
extern const SLanguage SOCKETCAND_LANGUAGE;

} // namespace vexmor::Bench
