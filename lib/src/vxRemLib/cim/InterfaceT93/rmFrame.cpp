#include "InterfaceT93/rmFrame.h"

namespace vexmor::Cim
{
namespace
{
// Offsets in a frame, and sizes of the parts of a CAN message.
constexpr std::size_t OFFSET_LENGTH = 1;
constexpr std::size_t OFFSET_COMMAND = 2;
constexpr std::size_t OFFSET_PAYLOAD = 3;
constexpr std::size_t CAN_ID_SIZE = 2;
constexpr std::size_t CAN_DATA_SIZE = 8;

struct SBaudrate {
    std::uint32_t kbitPerSecond;
    std::uint8_t code;
};
constexpr SBaudrate BAUDRATES[] = {{50, 0x02}, {100, 0xFE}, {125, 0x03}, {250, 0x04}, {500, 0x05}, {1000, 0x07}};

/// Completes a frame whose payload is already in the buffer; `payloadXor` is the XOR of the payload. Returns the number
/// of bytes of the frame.
std::size_t closeFrame(std::uint8_t command, std::size_t payloadLength, std::uint8_t payloadXor, std::uint8_t* buffer)
{
    const auto length = static_cast<std::uint8_t>(1 + payloadLength);
    const std::size_t checksumOffset = OFFSET_PAYLOAD + payloadLength;
    buffer[0] = RM_START_OF_FRAME;
    buffer[OFFSET_LENGTH] = length;
    buffer[OFFSET_COMMAND] = command;
    buffer[checksumOffset] = static_cast<std::uint8_t>(RM_START_OF_FRAME ^ length ^ command ^ payloadXor);
    buffer[checksumOffset + 1] = END_OF_FILE;
    return checksumOffset + 2;
}

std::size_t canMessageFrame(std::uint8_t command, const CCanMessage& message, std::uint8_t* buffer)
{
    const std::uint8_t high = message.id().high();
    const std::uint8_t low = message.id().low();
    buffer[OFFSET_PAYLOAD] = high;
    buffer[OFFSET_PAYLOAD + 1] = low;
    // Copies all 8 data bytes, because a fixed size needs no loop. Checksum and end marker overwrite those that are not
    // sent.
    std::memcpy(buffer + OFFSET_PAYLOAD + CAN_ID_SIZE, message.data(), CAN_DATA_SIZE);
    const auto payloadXor = static_cast<std::uint8_t>(high ^ low ^ rmXorOfBytes(message.data(), message.length()));
    return closeFrame(command, CAN_ID_SIZE + message.length(), payloadXor, buffer);
}
} // namespace

std::optional<std::uint8_t> rmBaudrateCode(std::uint32_t kbitPerSecond)
{
    for (const SBaudrate& baudrate : BAUDRATES) {
        if (baudrate.kbitPerSecond == kbitPerSecond) {
            return baudrate.code;
        }
    }
    return {};
}

std::uint32_t rmBaudrateOfCode(std::uint8_t code)
{
    for (const SBaudrate& baudrate : BAUDRATES) {
        if (baudrate.code == code) {
            return baudrate.kbitPerSecond;
        }
    }
    return 0;
}

int txRmFramer(const SRmRequest& request, const CCanMessage* message, std::uint8_t* buffer)
{
    switch (request.rmCommand) {
    case RM_CMD_TX11BIT_MSG:
    case RM_CMD_TX11BIT_MSG_ALT:
        if (message == nullptr) {
            return -1;
        }
        return static_cast<int>(canMessageFrame(request.rmCommand, *message, buffer));
    case RM_CMD_DEVICE_ID:
    case RM_CMD_FIRMWARE_VERSION:
    case RM_CMD_MAC_ADDRESS:
    case RM_CMD_BUSLOAD:
    case RM_CMD_CAN_BAUD_RATE:
    case RM_CMD_REQUEST_58:
    case RM_CMD_TIME_STAMP:
    case RM_CMD_BUSLOAD_INTERVAL:
    case RM_CMD_RESET:
        return static_cast<int>(rmFrameBytes(request.rmCommand, request.payload.data(), request.payloadLength, buffer));
    default: // other commands, such as 29-bit messages, are not sent
        return -1;
    }
}

std::size_t rmFrameBytes(std::uint8_t command, const std::uint8_t* payload, std::size_t payloadLength,
                         std::uint8_t* buffer)
{
    if (payloadLength > 0) {
        std::memcpy(buffer + OFFSET_PAYLOAD, payload, payloadLength);
    }
    return closeFrame(command, payloadLength, rmXorOfBytes(payload, payloadLength), buffer);
}

} // namespace vexmor::Cim
