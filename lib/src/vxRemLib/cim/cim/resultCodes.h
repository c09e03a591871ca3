#pragma once

/// The numbers by which operations and events of a T93 interface speak to the host. Their texts stand in
/// interfaceT93Errors.cpp (gateway codes, interface errors) and in canInterface.cpp (common codes).
namespace vexmor::Cim
{

/// Results of operations: 0 to 10 are common to all interfaces, 100 to 109 belong to the T93.
enum EResultCode : int {
    RC_OK = 0,
    RC_ALREADY_OPENED = 1,
    RC_NOT_OPENED = 2,
    RC_QUEUE_EMPTY = 4,
    RC_NO_CHANGE_WHILE_OPEN = 6,
    RC_PLUGIN_NAME_CHANGE = 7,
    RC_STRING_TO_ENUM = 8,
    RC_STRING_TO_ADDRESS = 9,
    RC_ENUM_TO_STRING = 10,

    RC_GATEWAY_FIRST = 100,
    RC_NO_SOCKET = 102,
    RC_TCP_CONNECT_FAILED = 103,
    RC_UDP_BIND_FAILED = 104,
    RC_UNKNOWN_PROTOCOL = 105,
    RC_FRAMER_FAILED = 107,
    RC_SEND_FAILED = 108,
    RC_NO_TCP_CONNECTION = 109
};

/// Events that `interfaceError` reports.
enum EInterfaceError : int {
    IE_TCP_CONNECTION_LOST = 0,
    IE_WRONG_CHECKSUM = 1,
    IE_RX_QUEUE_FULL = 2,
    IE_READ_FAILED = 3,
    IE_NOT_CONNECTED = 4,
    IE_STATUS_FIRST = 5 ///< status bit 0 of the gateway; bits 1 to 6 follow
};

} // namespace vexmor::Cim
