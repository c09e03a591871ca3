#include "InterfaceT93/gatewayReplies.h"

#include <QByteArray>
#include <QStringList>

namespace vexmor::Cim
{
namespace
{
// CAN message payload: high and low byte of the identifier, data, and with the timed command a time stamp.
constexpr int CAN_ID_SIZE = 2;
constexpr int TIME_STAMP_SIZE = 4;
constexpr unsigned int MAX_DATA_LENGTH = 8;
constexpr std::uint8_t STANDARD_ID_HIGH_BITS = 0x07;

// Firmware version reply: two unused bytes, major, minor.
constexpr int FIRMWARE_REPLY_SIZE = 4;
constexpr std::size_t FIRMWARE_MAJOR = 2;
constexpr std::size_t FIRMWARE_MINOR = 3;

constexpr int DEVICE_NUMBER_SIZE = 2; // size of the number after the identification text
} // namespace

void readCanMessage(const SRmFrame& frame, CCanMessage& message)
{
    const int timeStampSize = frame.command == RM_CMD_RX11BIT_TIME_MSG ? TIME_STAMP_SIZE : 0;
    const auto dataLength = static_cast<unsigned int>(frame.payloadLength - CAN_ID_SIZE - timeStampSize);
    auto* const data = const_cast<std::uint8_t*>(frame.payload) + CAN_ID_SIZE; // setData only reads the bytes
    const CCanId id(frame[0] & STANDARD_ID_HIGH_BITS, frame[1], 0);

    if (dataLength == MAX_DATA_LENGTH) { // the usual size: overwrites the previous message without a loop
        message.setData(0, MAX_DATA_LENGTH, data);
    } else {
        message = CCanMessage();
        if (message.setLength(dataLength)) { // otherwise, setLength has logged the reason
            message.setData(0, dataLength, data);
        }
    }
    message.setId(id);
}

EFirmwareReply firmwareVersionOfReply(const SRmFrame& frame, QString& version)
{
    if (frame.payloadLength < FIRMWARE_REPLY_SIZE) {
        return EFirmwareReply::eTooShort;
    }
    const int major = frame[FIRMWARE_MAJOR];
    const int minor = frame[FIRMWARE_MINOR];
    if (major == 2 && minor == 3) {
        return EFirmwareReply::eInDeviceId;
    }
    version = QStringLiteral("%1.%2").arg(major).arg(minor, 2, 10, QLatin1Char('0'));
    return EFirmwareReply::eVersion;
}

bool firmwareVersionOfIdentification(const SRmFrame& frame, QString& version)
{
    if (frame.payloadLength < DEVICE_NUMBER_SIZE) {
        return false;
    }
    const char* const text = reinterpret_cast<const char*>(frame.payload);
    const auto length = qstrnlen(text, static_cast<uint>(frame.payloadLength - DEVICE_NUMBER_SIZE));
    const QStringList words = QString::fromLatin1(text, static_cast<int>(length)).split(QLatin1Char(' '));
    const QString prefix = QStringLiteral("SW");
    if (words.size() < 3 || words.at(0) != QStringLiteral("T93") || !words.at(2).startsWith(prefix)) {
        return false;
    }
    version = words.at(2).mid(prefix.size());
    while (version.startsWith(QLatin1Char('0'))) {
        version.remove(0, 1);
    }
    return true;
}

} // namespace vexmor::Cim
