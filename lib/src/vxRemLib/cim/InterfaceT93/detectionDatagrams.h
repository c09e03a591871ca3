#pragma once

#include <QByteArray>

#include <array>
#include <cstdint>
#include <vector>

/// DDT, the protocol of the network scan: ident requests of the PC and ident replies of the gateways. Both consist of a
/// header and as many entries as the header announces:
///
///     offset   size    header
///     0        2       sequence, low byte first
///     2        1       kind: 0x80 request, 0x00 reply
///     3        1       number of entries
///
///     offset   size    entry, one per endpoint of a gateway; in a request all zero except for the type text
///     0        4       IPv4 address
///     4        1       service: 1 client, 2 server
///     5        1       protocol: 0 TCP, 1 UDP
///     6        2       port, high byte first
///     8        6       MAC address
///     14       22      type text, padded with zeros
///     36       28      host name in UTF-8, ended by a zero byte
///
/// The functions use no sockets. Datagrams may come from anyone: nothing is read outside of them.
namespace vexmor::Cim
{

class CConfigParamT93;

/// The UDP port on which gateways listen for ident requests.
constexpr std::uint16_t DDT_PORT = 33333;

constexpr int DDT_HEADER_SIZE = 4;
constexpr int DDT_ENTRY_SIZE = 64;
constexpr int DDT_MAX_ENTRIES = 255;
constexpr int DDT_HOST_NAME_SIZE = 28;
constexpr int DDT_IDENT_REQUEST_SIZE = DDT_HEADER_SIZE + DDT_ENTRY_SIZE;
/// The size of the longest datagram.
constexpr int DDT_MAX_SIZE = DDT_HEADER_SIZE + DDT_MAX_ENTRIES * DDT_ENTRY_SIZE;

enum EDdtKind : std::uint8_t { DDT_IDENT_REPLY = 0x00, DDT_IDENT_REQUEST = 0x80 };
enum EDdtService : std::uint8_t { DDT_SERVICE_CLIENT = 1, DDT_SERVICE_SERVER = 2 };
enum EDdtProtocol : std::uint8_t { DDT_PROTOCOL_TCP = 0, DDT_PROTOCOL_UDP = 1 };

/// One entry of a datagram. A text ends before the first zero byte, or at the end of its field.
struct SDdtEntry {
    std::uint32_t ipAddress = 0; ///< The first number of the dotted form is the highest byte.
    std::uint8_t service = 0;
    std::uint8_t protocol = 0;
    std::uint16_t port = 0;
    std::array<std::uint8_t, 6> macAddress{};
    QByteArray typeText;
    QByteArray hostName;
};

/// Returns a datagram with the first DDT_MAX_ENTRIES of `entries`. Texts are cut at the end of their field.
QByteArray ddtDatagram(EDdtKind kind, const std::vector<SDdtEntry>& entries);

/// Returns the ident request with sequence 0; it has 68 bytes.
QByteArray ddtIdentRequest();
/// Sets the sequence of a datagram.
void setDdtSequence(QByteArray& datagram, std::uint16_t sequence);

/// Returns whether a datagram has this kind; a datagram that is too short has none.
bool isDdtKind(const QByteArray& datagram, EDdtKind kind);

/// Returns the endpoints in an ident reply that an interface can use, in order. These entries are left out:
/// - incomplete entries;
/// - entries with an unknown service;
/// - entries with protocol 2 (not available) or 255 (none);
/// - TCP clients, which connect to a PC instead of the reverse;
/// - entries with the service, protocol and port of an earlier entry.
std::vector<SDdtEntry> usableDdtEntries(const QByteArray& reply);

/// Returns the parameters for an endpoint: its host name, address, port, MAC address, protocol (invalid unless TCP or
/// UDP) and service, with default values for all other parameters.
CConfigParamT93 configParamOfDdtEntry(const SDdtEntry& entry);

} // namespace vexmor::Cim
