#pragma once

#include "InterfaceT93/rmFrame.h"

#include <QString>

/// What the gateway's frames say, read without sockets and without state. Payload bytes that a short reply does not
/// have read as 0; nothing is read outside the frame.
namespace vexmor::Cim
{

/// Replaces `message` by the CAN message in a frame of command RM_CMD_RX11BIT_MSG or RM_CMD_RX11BIT_TIME_MSG: an 11-bit
/// identifier and 0 to 8 data bytes, without the time stamp. A frame that announces fewer or more data bytes gives a
/// message with its identifier, length 0 and no data, and a debug message: the reader sees that something came, and
/// nothing stale.
void readCanMessage(const SRmFrame& frame, CCanMessage& message);
inline CCanMessage canMessageOfFrame(const SRmFrame& frame)
{
    CCanMessage message;
    readCanMessage(frame, message);
    return message;
}

enum class EFirmwareReply {
    eTooShort,
    eAskDeviceId, ///< version 2.3: the real one stands in the device identification
    eVersion
};
/// Evaluates a firmware version reply; `version` becomes major "." minor in two digits, like 1.05, with eVersion only.
EFirmwareReply firmwareVersionOfReply(const SRmFrame& frame, QString& version);

/// The firmware version in a device identification like "T93 X SW02.03", which gives 2.03; false when there is none.
bool firmwareVersionOfIdentification(const SRmFrame& frame, QString& version);

} // namespace vexmor::Cim
