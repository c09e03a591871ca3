#include "InterfaceT93/detectionDatagrams.h"

#include "InterfaceT93/configParamT93.h"

#include <QtEndian>

#include <algorithm>
#include <cstddef>

namespace vexmor::Cim
{
namespace
{
constexpr int OFFSET_KIND = 2;
constexpr int OFFSET_ENTRY_COUNT = 3;

constexpr int OFFSET_SERVICE = 4;
constexpr int OFFSET_PROTOCOL = 5;
constexpr int OFFSET_PORT = 6;
constexpr int OFFSET_MAC_ADDRESS = 8;
constexpr int OFFSET_TYPE_TEXT = 14;
constexpr int OFFSET_HOST_NAME = 36;
constexpr int TYPE_TEXT_SIZE = OFFSET_HOST_NAME - OFFSET_TYPE_TEXT;
static_assert(OFFSET_HOST_NAME + DDT_HOST_NAME_SIZE == DDT_ENTRY_SIZE);

constexpr std::uint8_t PROTOCOL_NOT_AVAILABLE = 2;
constexpr std::uint8_t PROTOCOL_NONE = 0xFF;

std::ptrdiff_t entryOffset(int index)
{
    return DDT_HEADER_SIZE + static_cast<std::ptrdiff_t>(index) * DDT_ENTRY_SIZE;
}

QByteArray textOfField(const char* field, int size)
{
    return QByteArray(field, static_cast<int>(qstrnlen(field, static_cast<uint>(size))));
}

SDdtEntry readEntry(const char* bytes)
{
    SDdtEntry entry;
    entry.ipAddress = qFromBigEndian<std::uint32_t>(bytes);
    entry.service = static_cast<std::uint8_t>(bytes[OFFSET_SERVICE]);
    entry.protocol = static_cast<std::uint8_t>(bytes[OFFSET_PROTOCOL]);
    entry.port = qFromBigEndian<std::uint16_t>(bytes + OFFSET_PORT);
    std::copy_n(bytes + OFFSET_MAC_ADDRESS, entry.macAddress.size(), entry.macAddress.begin());
    entry.typeText = textOfField(bytes + OFFSET_TYPE_TEXT, TYPE_TEXT_SIZE);
    entry.hostName = textOfField(bytes + OFFSET_HOST_NAME, DDT_HOST_NAME_SIZE);
    return entry;
}

void writeEntry(const SDdtEntry& entry, char* bytes)
{
    qToBigEndian(entry.ipAddress, bytes);
    bytes[OFFSET_SERVICE] = static_cast<char>(entry.service);
    bytes[OFFSET_PROTOCOL] = static_cast<char>(entry.protocol);
    qToBigEndian(entry.port, bytes + OFFSET_PORT);
    std::copy(entry.macAddress.begin(), entry.macAddress.end(), bytes + OFFSET_MAC_ADDRESS);
    const QByteArray typeText = entry.typeText.left(TYPE_TEXT_SIZE);
    const QByteArray hostName = entry.hostName.left(DDT_HOST_NAME_SIZE);
    std::copy(typeText.begin(), typeText.end(), bytes + OFFSET_TYPE_TEXT);
    std::copy(hostName.begin(), hostName.end(), bytes + OFFSET_HOST_NAME);
}

bool isUsable(const SDdtEntry& entry)
{
    const bool knownService = entry.service == DDT_SERVICE_CLIENT || entry.service == DDT_SERVICE_SERVER;
    const bool hasProtocol = entry.protocol != PROTOCOL_NOT_AVAILABLE && entry.protocol != PROTOCOL_NONE;
    const bool isTcpClient = entry.service == DDT_SERVICE_CLIENT && entry.protocol == DDT_PROTOCOL_TCP;
    return knownService && hasProtocol && !isTcpClient;
}

CCommonInfo::EProtocolType protocolOf(std::uint8_t protocol)
{
    switch (protocol) {
    case DDT_PROTOCOL_TCP:
        return CCommonInfo::eProtocolTcp;
    case DDT_PROTOCOL_UDP:
        return CCommonInfo::eProtocolUdp;
    default:
        return CCommonInfo::eProtocolInvalid;
    }
}
} // namespace

QByteArray ddtDatagram(EDdtKind kind, const std::vector<SDdtEntry>& entries)
{
    const int count = static_cast<int>(std::min<std::size_t>(entries.size(), DDT_MAX_ENTRIES));
    QByteArray datagram(DDT_HEADER_SIZE + count * DDT_ENTRY_SIZE, '\0');
    datagram[OFFSET_KIND] = static_cast<char>(kind);
    datagram[OFFSET_ENTRY_COUNT] = static_cast<char>(count);
    for (int i = 0; i < count; ++i) {
        writeEntry(entries[static_cast<std::size_t>(i)], datagram.data() + entryOffset(i));
    }
    return datagram;
}

QByteArray ddtIdentRequest()
{
    SDdtEntry wanted;
    wanted.typeText = "T93 ";
    return ddtDatagram(DDT_IDENT_REQUEST, {wanted});
}

void setDdtSequence(QByteArray& datagram, std::uint16_t sequence)
{
    qToLittleEndian(sequence, datagram.data());
}

bool isDdtKind(const QByteArray& datagram, EDdtKind kind)
{
    return datagram.size() > OFFSET_KIND && static_cast<std::uint8_t>(datagram.at(OFFSET_KIND)) == kind;
}

std::vector<SDdtEntry> usableDdtEntries(const QByteArray& reply)
{
    if (reply.size() < DDT_HEADER_SIZE) {
        return {};
    }
    const int announced = static_cast<std::uint8_t>(reply.at(OFFSET_ENTRY_COUNT));
    const int present = (reply.size() - DDT_HEADER_SIZE) / DDT_ENTRY_SIZE;
    std::vector<SDdtEntry> seen;
    std::vector<SDdtEntry> usable;
    for (int i = 0; i < std::min(announced, present); ++i) {
        const SDdtEntry entry = readEntry(reply.constData() + entryOffset(i));
        const bool isRepeated = std::any_of(seen.begin(), seen.end(), [&entry](const SDdtEntry& earlier) {
            return earlier.service == entry.service && earlier.protocol == entry.protocol && earlier.port == entry.port;
        });
        if (isUsable(entry) && !isRepeated) {
            usable.push_back(entry);
        }
        seen.push_back(entry);
    }
    return usable;
}

CConfigParamT93 configParamOfDdtEntry(const SDdtEntry& entry)
{
    CConfigParamT93 param;
    param.setHostname(QString::fromUtf8(entry.hostName));
    param.setIpAddress(QHostAddress(entry.ipAddress));
    param.setPort(entry.port);
    param.setMacAddress(entry.macAddress);
    param.setProtocolType(protocolOf(entry.protocol));
    param.setServiceType(entry.service == DDT_SERVICE_CLIENT ? CConfigParamT93::eServiceClient
                                                             : CConfigParamT93::eServiceServer);
    return param;
}

} // namespace vexmor::Cim
