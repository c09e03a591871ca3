#pragma once

#include "InterfaceT93/rmFrame.h"

#include <QString>

/// Functions that evaluate the gateway's frames, without sockets and without state. Payload bytes that a short frame
/// does not have count as 0; nothing is read outside the frame.
namespace vexmor::Cim
{

/// Sets `message` to the CAN message in a frame of command RM_CMD_RX11BIT_MSG or RM_CMD_RX11BIT_TIME_MSG: an 11-bit
/// identifier and 0 to 8 data bytes, without the time stamp. A frame of another size yields a message with the
/// identifier of the frame and length 0, and a qDebug line: readers see that a message came, but no old data.
void readCanMessage(const SRmFrame& frame, CCanMessage& message);
inline CCanMessage canMessageOfFrame(const SRmFrame& frame)
{
    CCanMessage message;
    readCanMessage(frame, message);
    return message;
}

enum class EFirmwareReply {
    eTooShort,
    eInDeviceId, ///< Version 2.3: the device identification contains the real version.
    eVersion
};
/// Evaluates a firmware version reply. Only with eVersion is `version` set: to major and two-digit minor, like 1.05.
EFirmwareReply firmwareVersionOfReply(const SRmFrame& frame, QString& version);

/// Sets `version` to the firmware version in a device identification: to 2.03 for "T93 X SW02.03". Returns false when
/// the identification contains no version.
bool firmwareVersionOfIdentification(const SRmFrame& frame, QString& version);

} // namespace vexmor::Cim
