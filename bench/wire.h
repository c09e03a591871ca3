#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

/// The frames as the plain-socket side of the measurements knows them: made and taken apart with nothing to spare, so
/// that they stand for what is possible at all.
namespace vexmor::Bench
{

enum class EProtocol { eTcp, eUdp };

constexpr std::size_t DATA_SIZE = 8; ///< data bytes of every message that is sent here
/// Size of such a message in its frame.
constexpr std::size_t FRAME_SIZE = 15;
constexpr std::size_t READ_SIZE = 64 * 1024;
/// Silence on the link after which a measurement is given up.
constexpr int PATIENCE_S = 5;

// What the gateway process does with a message is said by its identifier.
constexpr std::uint16_t ID_SWALLOW = 0x100; ///< nothing
constexpr std::uint16_t ID_ECHO = 0x101;    ///< sends it back
constexpr std::uint16_t ID_BURST = 0x102;   ///< sends as many messages as data bytes 0 and 1 (high byte first) say

struct SMessage {
    std::uint16_t id = 0;
    std::array<std::uint8_t, DATA_SIZE> data{};
};

/// One of a burst.
inline SMessage burstMessage(int number)
{
    SMessage message{static_cast<std::uint16_t>(number & 0x7FF), {}};
    message.data.fill(static_cast<std::uint8_t>(number));
    return message;
}

/// What every host does with a message that it receives: it looks at identifier, length and bytes. The sum over all
/// shows whether it received what was sent.
inline std::uint64_t lookAt(std::uint16_t id, std::size_t length, const std::uint8_t* data)
{
    if (length != DATA_SIZE) {
        throw std::runtime_error("a message is not as it was sent");
    }
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, data, DATA_SIZE);
    return bytes * 31 + id;
}

inline std::uint64_t lookAt(const SMessage& message)
{
    return lookAt(message.id, message.data.size(), message.data.data());
}

inline void writeFrame(const SMessage& message, std::uint8_t* frame)
{
    const std::uint8_t head[] = {0x43, 11, 0x00, static_cast<std::uint8_t>(message.id >> 8),
                                 static_cast<std::uint8_t>(message.id & 0xFF)};
    std::memcpy(frame, head, sizeof head);
    std::memcpy(frame + sizeof head, message.data.data(), message.data.size());
    std::uint8_t checksum = 0;
    for (std::size_t i = 0; i < FRAME_SIZE - 2; ++i) {
        checksum ^= frame[i];
    }
    frame[FRAME_SIZE - 2] = checksum;
    frame[FRAME_SIZE - 1] = 0x0D;
}

/// Takes the CAN messages out of a buffer of whole and cut frames, skips other frames, and gives the number of bytes
/// used up: what is left is the start of a frame. Throws on anything that no gateway sends.
template <typename OnMessage>
std::size_t parseFrames(const std::uint8_t* bytes, std::size_t count, OnMessage&& onMessage)
{
    std::size_t used = 0;
    while (count - used >= 2) {
        const std::uint8_t* const frame = bytes + used;
        const std::size_t size = frame[1] + std::size_t{4};
        if (count - used < size) {
            break;
        }
        std::uint8_t checksum = 0;
        for (std::size_t i = 0; i < size - 2; ++i) {
            checksum ^= frame[i];
        }
        if (frame[0] != 0x43 || checksum != frame[size - 2] || frame[size - 1] != 0x0D) {
            throw std::runtime_error("broken frame");
        }
        if (frame[2] == 0x00 && size == FRAME_SIZE) {
            SMessage message;
            message.id = static_cast<std::uint16_t>((frame[3] << 8) | frame[4]);
            std::memcpy(message.data.data(), frame + 5, message.data.size());
            onMessage(message);
        }
        used += size;
    }
    return used;
}

/// Takes the messages out of a socket. Any number of these share one buffer.
class CFrameReader
{
public:
    /// `read(bytes, size)` gives what the socket has, as recv does. Throws when it gives nothing.
    template <typename Read, typename OnMessage>
    void readFrom(Read&& read, OnMessage&& onMessage)
    {
        static std::array<std::uint8_t, READ_SIZE> s_buffer;
        std::memcpy(s_buffer.data(), m_cut.data(), m_cutSize);
        const auto got = read(s_buffer.data() + m_cutSize, s_buffer.size() - m_cutSize);
        if (got <= 0) {
            throw std::runtime_error("messages missing");
        }
        const std::size_t count = m_cutSize + static_cast<std::size_t>(got);
        const std::size_t used = parseFrames(s_buffer.data(), count, onMessage);
        m_cutSize = count - used;
        std::memcpy(m_cut.data(), s_buffer.data() + used, m_cutSize);
    }

private:
    std::array<std::uint8_t, FRAME_SIZE> m_cut{}; ///< start of a frame
    std::size_t m_cutSize = 0;
};

/// Watches messages come in that carry a number in their first four data bytes: each may come once, and only higher
/// than the ones before.
struct SSequence {
    std::uint64_t received = 0;
    std::uint64_t missing = 0;    ///< numbers that were left out so far
    std::uint64_t gaps = 0;       ///< how often some were left out, except where that was permitted
    bool mayMiss = false;         ///< some may be left out before the next message
    std::uint64_t disordered = 0; ///< came twice, or late
    std::uint32_t nextNumber = 0; ///< one above the highest so far

    /// Of a message with these data bytes.
    void take(const std::uint8_t* data)
    {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        ++received;
        if (number < nextNumber) {
            ++disordered;
            return;
        }
        gaps += number > nextNumber && !mayMiss ? 1 : 0;
        mayMiss = false;
        missing += number - nextNumber;
        nextNumber = number + 1;
    }
};

} // namespace vexmor::Bench
