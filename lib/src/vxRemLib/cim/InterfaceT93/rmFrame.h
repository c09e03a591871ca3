#pragma once

#include "cim/canMessage.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

/// RM, the protocol of a T93 gateway: the frames that it and a PC exchange, over TCP and over UDP alike:
///
///     offset   size    field
///     0        1       start marker 0x43
///     1        1       length L: command and payload, 1 + payload length
///     2        1       command
///     3        L - 1   payload
///     2 + L    1       checksum: XOR of all bytes before it, start marker and length included
///     3 + L    1       end marker 0x0D
///
/// Bytes are not escaped. Framer and deframer use no sockets and allocate no memory.
namespace vexmor::Cim
{

constexpr std::uint8_t RM_START_OF_FRAME = 0x43;
constexpr std::uint8_t END_OF_FILE = 0x0D;

enum ERmCommand : std::uint8_t {
    RM_CMD_TX11BIT_MSG = 0x00,      ///< PC to gateway: high and low byte of the identifier, data
    RM_CMD_RX11BIT_MSG = 0x00,      ///< gateway to PC: the same payload
    RM_CMD_RX11BIT_TIME_MSG = 0x01, ///< gateway to PC: that payload, and 4 bytes of a time stamp
    RM_CMD_RX29BIT_MSG = 0x02,      ///< 29-bit identifiers are not supported
    RM_CMD_RX29BIT_TIME_MSG = 0x03,
    RM_CMD_TX11BIT_MSG_ALT = 0x04, ///< framed like RM_CMD_TX11BIT_MSG
    RM_CMD_TX29BIT_MSG_ALT = 0x06,
    RM_CMD_DEVICE_ID = 0x40,            ///< reply: identification text, 2-byte device number
    RM_CMD_FIRMWARE_VERSION = 0x41,     ///< reply: 4 bytes, the last two are major and minor
    RM_CMD_STATUS = 0x42,               ///< report: 1 byte of error flags
    RM_CMD_STATUS_ALT = 0x43,           ///< handled like RM_CMD_STATUS
    RM_CMD_MAC_ADDRESS = 0x44,          ///< reply: 6 bytes
    RM_CMD_BUSLOAD = 0x47,              ///< reply: 2 bytes, low byte first: frames per second, each counted as 74 bits
    RM_CMD_CAN_BAUD_RATE_REPORT = 0x56, ///< report; the driver ignores it
    RM_CMD_CAN_BAUD_RATE = 0x57,        ///< 1 byte: baud rate code
    RM_CMD_REQUEST_58 = 0x58,           ///< known to the framer, never sent by the driver
    RM_CMD_TIME_STAMP = 0xA1,           ///< known to the framer, never sent by the driver
    RM_CMD_BUSLOAD_INTERVAL = 0xA4,     ///< 2 bytes, high byte first: measuring interval in ms
    RM_CMD_RESET = 0xC0
};

/// The longest payload that the deframer accepts; a frame that announces more is dropped.
constexpr std::size_t RM_MAX_RX_PAYLOAD = 34;
/// The size of a buffer for any frame, and of one read from a socket.
constexpr std::size_t RM_BUFFER_SIZE = 1600;

/// A request to the gateway. For the CAN message commands the payload is made from a message instead.
struct SRmRequest {
    std::uint8_t payloadLength = 0;
    std::uint8_t rmCommand = 0;
    std::array<std::uint8_t, 255> payload; ///< Only the first payloadLength bytes are used.
};

/// A received frame. Its payload lies in the buffer of the receiver and is valid only while the frame is handled.
struct SRmFrame {
    std::uint8_t command = 0;
    std::uint8_t payloadLength = 0;
    const std::uint8_t* payload = nullptr;

    /// Returns a payload byte; 0 after the last one.
    std::uint8_t operator[](std::size_t index) const { return index < payloadLength ? payload[index] : 0; }
};

/// Returns the baud rate code for a CAN bit rate in kbit/s; nothing for a rate that the gateway does not know.
std::optional<std::uint8_t> rmBaudrateCode(std::uint32_t kbitPerSecond);
/// Returns the CAN bit rate in kbit/s for a baud rate code; 0 for an unknown code.
std::uint32_t rmBaudrateOfCode(std::uint8_t code);

/// Writes the frame of a request to `buffer`, which holds RM_BUFFER_SIZE bytes. `message` is used only by the CAN
/// message commands, which send its identifier unchanged. Returns the number of bytes of the frame, or -1 for a command
/// that is not sent and for a CAN message command without a message.
int txRmFramer(const SRmRequest& request, const CCanMessage* message, std::uint8_t* buffer);

/// Writes a frame of any command to `buffer`, which has room for payloadLength + 5 bytes, and returns its number of
/// bytes. `payloadLength` is at most 255. Gateways frame their replies with this function.
std::size_t rmFrameBytes(std::uint8_t command, const std::uint8_t* payload, std::size_t payloadLength,
                         std::uint8_t* buffer);

/// Returns the XOR of `count` bytes, calculated several at a time.
inline std::uint8_t rmXorOfBytes(const std::uint8_t* bytes, std::size_t count)
{
    std::uint64_t words = 0;
    for (; count >= sizeof words; bytes += sizeof words, count -= sizeof words) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        words ^= word;
    }
    auto half = static_cast<std::uint32_t>(words ^ (words >> 32));
    if (count >= sizeof half) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        half ^= word;
        bytes += sizeof half;
        count -= sizeof half;
    }
    half ^= half >> 16;
    auto result = static_cast<std::uint8_t>(half ^ (half >> 8));
    for (; count > 0; ++bytes, --count) {
        result ^= *bytes;
    }
    return result;
}

/// Cuts a byte stream into frames. It keeps its state between calls of `feed`, so that the pieces of a stream may end
/// anywhere.
class CRmDeframer
{
public:
    /// Returns to the initial state, in which it searches for a start marker.
    void reset() { *this = CRmDeframer(); }

    /// Reads bytes. Calls `onFrame(const SRmFrame&)` for each valid frame and `onWrongChecksum()` for each frame with a
    /// wrong checksum, in the order of the stream. A function that returns false stops the reading: the remaining bytes
    /// are then dropped, and the deframer is not accessed any more, so that this function may reset or delete it.
    template <typename OnFrame, typename OnWrongChecksum>
    void feed(const std::uint8_t* bytes, std::size_t count, OnFrame&& onFrame, OnWrongChecksum&& onWrongChecksum);

private:
    enum class EState : std::uint8_t { eHunting, eLength, eCommand, ePayload, eChecksum, eEnd };

    /// Reads a frame that is complete in the bytes after a start marker, without copying it. Returns the number of
    /// bytes used, or 0 when it is incomplete or faulty and must be read byte by byte.
    static std::size_t wholeFrame(const std::uint8_t* bytes, std::size_t count, SRmFrame& frame);
    void startFrame();

    std::array<std::uint8_t, RM_MAX_RX_PAYLOAD> m_payload{}; ///< Payload of a frame that is read byte by byte.
    std::uint32_t m_index = 0;                               ///< Number of payload bytes received so far.
    std::uint8_t m_payloadLength = 0;
    std::uint8_t m_command = 0;
    EState m_state = EState::eHunting;
    std::uint8_t m_checksum = 0;
};

inline void CRmDeframer::startFrame()
{
    m_checksum = RM_START_OF_FRAME;
    m_state = EState::eLength;
}

inline std::size_t CRmDeframer::wholeFrame(const std::uint8_t* bytes, std::size_t count, SRmFrame& frame)
{
    // After the start marker: length, command, payload, checksum, end marker.
    constexpr std::size_t COMMAND = 1;
    constexpr std::size_t PAYLOAD = 2;
    if (count < PAYLOAD || bytes[0] == 0 || bytes[0] > RM_MAX_RX_PAYLOAD + 1) {
        return 0;
    }
    const std::size_t length = bytes[0];
    if (count < length + 3) {
        return 0;
    }
    const auto checksum = static_cast<std::uint8_t>(RM_START_OF_FRAME ^ rmXorOfBytes(bytes, length + 1));
    if (checksum != bytes[length + 1] || bytes[length + 2] != END_OF_FILE) {
        return 0;
    }
    frame = {bytes[COMMAND], static_cast<std::uint8_t>(length - 1), bytes + PAYLOAD};
    return length + 3;
}

template <typename OnFrame, typename OnWrongChecksum>
void CRmDeframer::feed(const std::uint8_t* bytes, std::size_t count, OnFrame&& onFrame,
                       OnWrongChecksum&& onWrongChecksum)
{
    const std::uint8_t* const end = bytes + count;
    while (bytes != end) {
        switch (m_state) {
        case EState::eHunting: {
            if (*bytes != RM_START_OF_FRAME) {
                const void* const start = std::memchr(bytes, RM_START_OF_FRAME, static_cast<std::size_t>(end - bytes));
                if (start == nullptr) {
                    return;
                }
                bytes = static_cast<const std::uint8_t*>(start);
            }
            ++bytes;
            SRmFrame frame;
            const std::size_t used = wholeFrame(bytes, static_cast<std::size_t>(end - bytes), frame);
            if (used == 0) {
                startFrame();
                break;
            }
            bytes += used;
            if (!onFrame(std::as_const(frame))) {
                return;
            }
            break;
        }
        case EState::eLength: {
            const std::uint8_t length = *bytes++;
            if (length == RM_START_OF_FRAME) {
                startFrame();
                break;
            }
            m_payloadLength = static_cast<std::uint8_t>(length - 1);
            m_checksum ^= length;
            m_state = m_payloadLength > RM_MAX_RX_PAYLOAD ? EState::eHunting : EState::eCommand;
            break;
        }
        case EState::eCommand:
            m_command = *bytes++;
            m_checksum ^= m_command;
            m_index = 0;
            m_state = m_payloadLength > 0 ? EState::ePayload : EState::eChecksum;
            break;
        case EState::ePayload: {
            // Local copies stay in registers: to the compiler, a write to the payload might change any member.
            const std::uint32_t length = m_payloadLength;
            std::uint32_t index = m_index;
            std::uint8_t checksum = m_checksum;
            do {
                const std::uint8_t byte = *bytes++;
                m_payload[index++] = byte;
                checksum ^= byte;
            } while (bytes != end && index < length);
            m_index = index;
            m_checksum = checksum;
            if (index == length) {
                m_state = EState::eChecksum;
            }
            break;
        }
        case EState::eChecksum:
            if (*bytes++ == m_checksum) {
                m_state = EState::eEnd;
                break;
            }
            m_state = EState::eHunting;
            if (!onWrongChecksum()) {
                return;
            }
            break;
        case EState::eEnd:
            m_state = EState::eHunting;
            if (*bytes++ == END_OF_FILE && !onFrame(SRmFrame{m_command, m_payloadLength, m_payload.data()})) {
                return;
            }
            break;
        }
    }
}

} // namespace vexmor::Cim
