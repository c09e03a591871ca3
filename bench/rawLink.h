#pragma once

#include "bench/wire.h"

#include <vector>

namespace vexmor::Bench
{

/// A connected socket and nothing else: the limit that the plugin is measured against. Blocks; throws std::system_error
/// when a call fails and when nothing comes for PATIENCE_S.
class CRawLink
{
public:
    /// To a gateway at 127.0.0.1. TCP frames leave at once.
    CRawLink(EProtocol protocol, std::uint16_t port);
    ~CRawLink();
    CRawLink(const CRawLink&) = delete;
    CRawLink& operator=(const CRawLink&) = delete;

    void send(const SMessage& message);
    /// `count` messages in a single call of the kernel.
    void sendJoined(const SMessage& message, int count);
    /// Waits for `count` messages and looks at each.
    void receive(int count);

private:
    void sendBytes(const std::uint8_t* bytes, std::size_t count);

    int m_socket = -1;
    std::vector<std::uint8_t> m_buffer; ///< of one read
    std::size_t m_kept = 0;             ///< bytes of a cut frame at the start of the buffer
};

} // namespace vexmor::Bench
