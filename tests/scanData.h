#pragma once

// Builds the datagrams for the tests of the scan, independently of the tested code.

#include "testData.h"

#include <cstdint>

namespace vexmor::Test
{

/// Returns an entry of a reply, for the address 192.168.1.70 and the MAC address 00:1a:2b:3c:4d:5e.
inline QByteArray entry(int service, int protocol, const QByteArray& name = "gw1", std::uint16_t port = 30000)
{
    return hex("c0a80146") + char(service) + char(protocol) + char(port >> 8) + char(port & 0xff) +
           hex("001a2b3c4d5e") + QByteArray(22, '\0') + name.leftJustified(28, '\0');
}

inline QByteArray reply(int announced, const QByteArray& entries)
{
    return hex("000000") + char(announced) + entries;
}

inline QByteArray requestBytes(int sequence)
{
    return QByteArray(1, char(sequence & 0xff)) + char(sequence >> 8) + hex("8001") + QByteArray(14, '\0') + "T93 " +
           QByteArray(18 + 28, '\0');
}

} // namespace vexmor::Test
