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

/// Size of a framed CAN message of 8 data bytes, the only one sent here.
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
    std::array<std::uint8_t, 8> data{};
};

inline SMessage burstRequest(int count)
{
    SMessage message{ID_BURST, {}};
    message.data[0] = static_cast<std::uint8_t>(count >> 8);
    message.data[1] = static_cast<std::uint8_t>(count & 0xFF);
    return message;
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

} // namespace vexmor::Bench
