#pragma once

/// The result codes of operations and the numbers of interface errors. `errorCodeToString` and `interfaceErrorToString`
/// of an interface return their texts.
namespace vexmor::Cim
{

/// Result codes of operations. 0 to 10 are common to all interfaces. Each implementation has its own codes from 100 on;
/// those of the T93 are 100 to 109.
enum EResultCode : int {
    RC_OK = 0,                     ///< Success.
    RC_ALREADY_OPENED = 1,         ///< The interface is open already.
    RC_NOT_OPENED = 2,             ///< The interface is not open.
    RC_NOT_CONNECTED = 3,          ///< Reserved; never returned by a T93 interface.
    RC_QUEUE_EMPTY = 4,            ///< There is no message to read.
    RC_BAUDRATE_NOT_SUPPORTED = 5, ///< Never returned by a T93 interface: for a wrong rate `setBaudrate` returns false.
    RC_NO_CHANGE_WHILE_OPEN = 6,   ///< The interface must be closed before it is changed.
    RC_PLUGIN_NAME_CHANGE = 7,     ///< The stored settings belong to another plugin.
    RC_STRING_TO_ENUM = 8,         ///< A stored protocol or socket mode is unknown.
    RC_STRING_TO_ADDRESS = 9,      ///< A stored address is invalid.
    RC_ENUM_TO_STRING = 10,        ///< The protocol or the socket mode has no text, so it cannot be stored.

    RC_GATEWAY_FIRST = 100,      ///< The first of the T93's codes.
    RC_NO_TCP_SOCKET = 100,      ///< Reserved, never returned.
    RC_NO_UDP_SOCKET = 101,      ///< Reserved, never returned.
    RC_NO_SOCKET = 102,          ///< The spy handler closed or deleted the interface before the message was sent.
    RC_TCP_CONNECT_FAILED = 103, ///< The connection was refused, or not made within a second.
    RC_UDP_BIND_FAILED = 104,    ///< The local address cannot be bound; this computer may not have it.
    RC_UNKNOWN_PROTOCOL = 105,   ///< The protocol is neither TCP nor UDP.
    RC_NO_QUEUE = 106,           ///< Reserved, never returned.
    RC_FRAMER_FAILED = 107,      ///< Reserved, never returned.
    RC_SEND_FAILED = 108,        ///< The link failed, or too many messages wait for a gateway that does not read.
    RC_NO_TCP_CONNECTION = 109   ///< The TCP connection is down; it is being regained.
};

/// Errors that the signal `interfaceError` reports. None of them closes the interface.
enum EInterfaceError : int {
    IE_TCP_CONNECTION_LOST = 0,        ///< The TCP connection was lost and is being regained; raised once per loss.
    IE_WRONG_CHECKSUM = 1,             ///< A received frame had a wrong checksum and was dropped; raised for each.
    IE_RX_QUEUE_FULL = 2,              ///< The queue holds 10000 messages; further ones are lost until some are read.
    IE_READ_FAILED = 3,                ///< Reading from the socket failed.
    IE_NOT_CONNECTED = 4,              ///< `resetCommunication(1)` failed, because the link is down.
    IE_STATUS_FIRST = 5,               ///< The first of 7 errors that the gateway reports, one per bit of its status.
    IE_CAN_BUFFER_OVERFLOW = 5,        ///< Status bit 0: the gateway's buffer for CAN messages overflowed.
    IE_CAN_TRANSMIT_TIMEOUT = 6,       ///< Status bit 1: the gateway could not send a message on the bus in time.
    IE_CAN_ERROR_COUNTER_OVERFLOW = 7, ///< Status bit 2: the gateway has counted too many errors on the bus.
    IE_CAN_BUS_OFF = 8,                ///< Status bit 3: the gateway has left the bus after errors ("bus off").
    IE_TCP_SYNTAX_ERROR = 9,           ///< Status bit 4: the gateway received bytes that are no valid frame.
    IE_TCP_FORMAT_ERROR = 10,          ///< Status bit 5: the gateway received a frame with invalid content.
    IE_TCP_BUFFER_OVERFLOW = 11        ///< Status bit 6: the gateway's buffer for received frames overflowed.
};

} // namespace vexmor::Cim
