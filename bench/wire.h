#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

/// Writes and reads RM frames with as little code as possible: with it, the plain socket shows the lowest possible
/// cost.
namespace vexmor::Bench
{

enum class EProtocol { eTcp, eUdp };

constexpr std::size_t DATA_SIZE = 8; ///< Data bytes of every message that is sent here.
/// Size of a frame with a message of DATA_SIZE bytes.
constexpr std::size_t FRAME_SIZE = 15;
constexpr std::size_t READ_SIZE = 64 * 1024;
/// Time without data after which a measurement is given up.
constexpr int PATIENCE_S = 5;

// The identifier of a message decides what the gateway process does with it.
constexpr std::uint16_t ID_SWALLOW = 0x100; ///< The gateway drops the message.
constexpr std::uint16_t ID_ECHO = 0x101;    ///< The gateway sends the message back.
constexpr std::uint16_t ID_BURST = 0x102;   ///< The gateway sends as many messages as bytes 0 (high) and 1 state.

struct SMessage {
    std::uint16_t id = 0;
    std::array<std::uint8_t, DATA_SIZE> data{};
};

/// Returns a message of a burst.
inline SMessage burstMessage(int number)
{
    SMessage message{static_cast<std::uint16_t>(number & 0x7FF), {}};
    message.data.fill(static_cast<std::uint8_t>(number));
    return message;
}

/// Returns a check sum of a message, which every host calculates. The total of all messages shows whether a host
/// received what was sent. Throws when the length is not DATA_SIZE.
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

/// Reads the CAN messages in a buffer and skips other frames. Returns the number of bytes used; the rest is the start
/// of a frame. Throws on bytes that no gateway sends.
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

/// Reads the messages of a socket. Several readers share one buffer.
class CFrameReader
{
public:
    /// Reads once by `read(bytes, size)`, which returns a number of bytes like recv. Throws when it returns none.
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
    std::array<std::uint8_t, FRAME_SIZE> m_cut{}; ///< Beginning of a frame whose other bytes have not arrived yet.
    std::size_t m_cutSize = 0;
};

/// Checks received messages with a number in their first four data bytes: each number may arrive once, and only after
/// all lower ones.
struct SSequence {
    std::uint64_t received = 0;
    std::uint64_t missing = 0;    ///< Numbers that have not arrived.
    std::uint64_t gaps = 0;       ///< Number of unexpected gaps in the sequence.
    bool mayMiss = false;         ///< A gap before the next message is permitted.
    std::uint64_t disordered = 0; ///< Messages that arrived twice or too late.
    std::uint32_t nextNumber = 0; ///< One above the highest number so far.

    /// Checks a message, given by its data bytes.
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
