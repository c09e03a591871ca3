#pragma once

/// The numbers by which operations and events speak to the host. `errorCodeToString` and `interfaceErrorToString` of an
/// interface give their texts.
namespace vexmor::Cim
{

/// Results of operations: 0 to 10 are common to all interfaces, those from 100 on are the implementation's; 100 to 109
/// are the T93's.
enum EResultCode : int {
    RC_OK = 0,
    RC_ALREADY_OPENED = 1,
    RC_NOT_OPENED = 2,
    RC_NOT_CONNECTED = 3,          ///< of no T93
    RC_QUEUE_EMPTY = 4,            ///< no message waits
    RC_BAUDRATE_NOT_SUPPORTED = 5, ///< of no T93: its `setBaudrate` gives false
    RC_NO_CHANGE_WHILE_OPEN = 6,
    RC_PLUGIN_NAME_CHANGE = 7, ///< what is stored belongs to another plugin
    RC_STRING_TO_ENUM = 8,     ///< a stored text that must be one of a few is none of them
    RC_STRING_TO_ADDRESS = 9,  ///< a stored address is none
    RC_ENUM_TO_STRING = 10,    ///< a parameter has no text by which it could be stored

    RC_GATEWAY_FIRST = 100,
    RC_NO_TCP_SOCKET = 100,      ///< never given
    RC_NO_UDP_SOCKET = 101,      ///< never given
    RC_NO_SOCKET = 102,          ///< closed while it was sending
    RC_TCP_CONNECT_FAILED = 103, ///< nobody answered within a second, or refused
    RC_UDP_BIND_FAILED = 104,    ///< the local address is not one of this computer
    RC_UNKNOWN_PROTOCOL = 105,   ///< neither TCP nor UDP
    RC_NO_QUEUE = 106,           ///< never given
    RC_FRAMER_FAILED = 107,      ///< what is to be sent has no frame
    RC_SEND_FAILED = 108,        ///< the link failed, or too much waits for a gateway that does not read
    RC_NO_TCP_CONNECTION = 109   ///< the link is down; it is being regained
};

/// Events that the signal `interfaceError` tells of. None of them closes the interface.
enum EInterfaceError : int {
    IE_TCP_CONNECTION_LOST = 0, ///< once a loss; the link is being regained
    IE_WRONG_CHECKSUM = 1,      ///< a received frame was dropped
    IE_RX_QUEUE_FULL = 2,       ///< 10000 messages wait; further ones are lost until the host reads
    IE_READ_FAILED = 3,
    IE_NOT_CONNECTED = 4, ///< a reset was asked for while the link is down
    IE_STATUS_FIRST = 5,  ///< what the gateway reports, by bits 0 to 6 of its status:
    IE_CAN_BUFFER_OVERFLOW = 5,
    IE_CAN_TRANSMIT_TIMEOUT = 6,
    IE_CAN_ERROR_COUNTER_OVERFLOW = 7,
    IE_CAN_BUS_OFF = 8,
    IE_TCP_SYNTAX_ERROR = 9,
    IE_TCP_FORMAT_ERROR = 10,
    IE_TCP_BUFFER_OVERFLOW = 11
};

} // namespace vexmor::Cim
