#pragma once

#include <QByteArray>

#include <array>
#include <cstdint>
#include <vector>

/// The datagrams by which gateways are found, the DDT message: an ident request of the PC, and the ident replies of the
/// gateways. Both are a header and as many entries as it announces:
///
///     offset   size    header
///     0        2       sequence, low byte first
///     2        1       kind: 0x80 request, 0x00 reply
///     3        1       number of entries
///
///     offset   size    entry, one for each endpoint of a gateway; all zero in a request but for the type text
///     0        4       IPv4 address
///     4        1       service: 1 client, 2 server
///     5        1       protocol: 0 TCP, 1 UDP
///     6        2       port, high byte first
///     8        6       MAC address
///     14       22      type text, padded with zeros
///     36       28      host name in UTF-8, ended by a zero byte
///
/// Written and read here without sockets. What is read comes from strangers: nothing is read outside the datagram.
namespace vexmor::Cim
{

class CConfigParamT93;

/// Where gateways listen for ident requests.
constexpr std::uint16_t DDT_PORT = 33333;

constexpr int DDT_HEADER_SIZE = 4;
constexpr int DDT_ENTRY_SIZE = 64;
constexpr int DDT_MAX_ENTRIES = 255;
constexpr int DDT_HOST_NAME_SIZE = 28;
constexpr int DDT_IDENT_REQUEST_SIZE = DDT_HEADER_SIZE + DDT_ENTRY_SIZE;
/// No datagram has anything to say behind so many bytes.
constexpr int DDT_MAX_SIZE = DDT_HEADER_SIZE + DDT_MAX_ENTRIES * DDT_ENTRY_SIZE;

enum EDdtKind : std::uint8_t { DDT_IDENT_REPLY = 0x00, DDT_IDENT_REQUEST = 0x80 };
enum EDdtService : std::uint8_t { DDT_SERVICE_CLIENT = 1, DDT_SERVICE_SERVER = 2 };
enum EDdtProtocol : std::uint8_t { DDT_PROTOCOL_TCP = 0, DDT_PROTOCOL_UDP = 1 };

/// One entry as it stands in a datagram. Texts are the bytes before the first zero, or the whole field without one.
struct SDdtEntry {
    std::uint32_t ipAddress = 0; ///< the first number of the dotted form is the highest byte
    std::uint8_t service = 0;
    std::uint8_t protocol = 0;
    std::uint16_t port = 0;
    std::array<std::uint8_t, 6> macAddress{};
    QByteArray typeText;
    QByteArray hostName;
};

/// A datagram of these entries (at most DDT_MAX_ENTRIES). Texts that are too long are cut at the end of their field.
QByteArray ddtDatagram(EDdtKind kind, const std::vector<SDdtEntry>& entries);

/// The ident request with sequence 0, 68 bytes.
QByteArray ddtIdentRequest();
/// Changes the sequence of a datagram in place.
void setDdtSequence(QByteArray& datagram, std::uint16_t sequence);

/// True when the datagram has a kind, and it is this one.
bool isDdtKind(const QByteArray& datagram, EDdtKind kind);

/// The endpoints in an ident reply that a host can use, in order. Of a reply that is shorter than it announces, the
/// entries that are there whole. Left out are entries of an unknown service, of protocol 2 or 255, TCP clients, and
/// those whose service, protocol and port stood in the reply before.
std::vector<SDdtEntry> usableDdtEntries(const QByteArray& reply);

/// The parameters by which the driver reaches an endpoint: host name, address, port, MAC address, protocol (what is
/// neither TCP nor UDP becomes invalid) and service; all else as by default.
CConfigParamT93 configParamOfDdtEntry(const SDdtEntry& entry);

} // namespace vexmor::Cim
