#pragma once

#include "cim/commonInfoInterface.h"

#include <QChar>
#include <QHostAddress>
#include <QString>

#include <array>
#include <cstdint>

namespace vexmor::Cim
{

/// Everything the system knows about how to reach and drive one T93 gateway.
///
/// A plain value without a lock; it validates nothing, every setter stores what it is given. It reads and writes itself
/// in the host's settings store.
class CConfigParamT93
{
public:
    /// Socket mode of the gateway; its texts are "CLIENT", "SERVER" and "Invalid".
    enum EServiceType : int { eServiceClient = 0, eServiceServer = 1, eServiceInvalid = 2 };

    /// A MAC address, first (leftmost printed) byte first.
    using MacAddress = std::array<std::uint8_t, 6>;

    CConfigParamT93();
    CConfigParamT93(const CConfigParamT93& other);
    CConfigParamT93& operator=(const CConfigParamT93& other);
    virtual ~CConfigParamT93();

    EServiceType serviceType() const { return m_serviceType; }
    void setServiceType(EServiceType type) { m_serviceType = type; }
    CCommonInfo::EProtocolType protocolType() const { return m_protocolType; }
    void setProtocolType(CCommonInfo::EProtocolType type) { m_protocolType = type; }
    const QHostAddress& ipAddress() const { return m_ipAddress; }
    void setIpAddress(const QHostAddress& address) { m_ipAddress = address; }
    const QHostAddress& localIpAddress() const { return m_localIpAddress; }
    void setLocalIpAddress(const QHostAddress& address) { m_localIpAddress = address; }
    std::uint16_t port() const { return m_port; }
    void setPort(std::uint16_t port) { m_port = port; }
    bool udpBindAnyIp() const { return m_udpBindAnyIp; }
    void setUdpBindAnyIp(bool bindAny) { m_udpBindAnyIp = bindAny; }
    bool autoIpUpdate() const { return m_autoIpUpdate; }
    void setAutoIpUpdate(bool update) { m_autoIpUpdate = update; }
    QString hostname() const { return m_hostname; }
    void setHostname(const QString& hostname) { m_hostname = hostname; }
    std::uint16_t busloadMeasureInterval() const { return m_busloadMeasureInterval; }
    void setBusloadMeasureInterval(std::uint16_t milliseconds) { m_busloadMeasureInterval = milliseconds; }
    std::uint32_t busloadPollTime() const { return m_busloadPollTime; }
    /// Held as it is; with 0 the driver measures every 100 ms, and only the gateway's own measurement gives a load.
    void setBusloadPollTime(std::uint32_t milliseconds) { m_busloadPollTime = milliseconds; }
    std::uint32_t canBaudrate() const { return m_canBaudrate; }
    void setCanBaudrate(std::uint32_t kbitPerSecond) { m_canBaudrate = kbitPerSecond; }
    void setMacAddress(const MacAddress& address) { m_macAddress = address; }

    /// The port text of an interface description, like IP=192.168.1.70:30000:TCP.
    QString ipPortString() const;
    /// The MAC address, each byte as two lower-case hexadecimal digits, with the separator between them.
    QString macAddressString(const QChar& separator) const;
    /// Text of the protocol; `ok` becomes false, and the text "Invalid", when it has none.
    QString protocolTypeString(bool& ok) const;
    /// Text of the service type; `ok` becomes false, and the text "Invalid", when it has none.
    QString serviceTypeString(bool& ok) const;

    /// False, with the text "Invalid" and a log line of level 30, for a value that has no text.
    static bool serviceEnumToStr(EServiceType type, QString& text);
    /// Case-sensitive; false, `type` untouched and a log line of level 30, for an unknown text.
    static bool serviceStrToEnum(const QString& text, EServiceType& type);

    /// Loads this record and `commonInfo` from the settings group of `commonInfo`'s unique name below `group`. Missing
    /// keys leave their fields. 7 when another plugin's interface is stored there, 9 for a text that is no address, 8
    /// for one that is no protocol or service: nothing is changed then. 0 otherwise.
    int loadSettings(const QString& group, CCommonInfo& commonInfo);
    /// Stores this record and `commonInfo` there, in the place of everything that was stored under that unique name.
    /// With an empty unique name the keys stand directly in `group`, and nothing in it is removed. 10, and nothing
    /// written, when protocol or service have no text; 0 otherwise.
    int saveSettings(const QString& group, CCommonInfo& commonInfo);

private:
    EServiceType m_serviceType = eServiceServer;
    CCommonInfo::EProtocolType m_protocolType = CCommonInfo::eProtocolTcp;
    QHostAddress m_ipAddress;
    QHostAddress m_localIpAddress; ///< of the PC's network interface to the gateway; UDP binds to it
    std::uint16_t m_port = 30000;  ///< TCP or UDP port of the gateway
    bool m_udpBindAnyIp = false;   ///< UDP: bind to any address of the PC
    bool m_dhcp = false;           ///< kept for the user, not acted on
    bool m_autoIpUpdate = false;   ///< kept for the user, not acted on
    MacAddress m_macAddress{};     ///< never stored
    QString m_hostname;
    std::uint16_t m_busloadMeasureInterval = 1000; ///< ms
    std::uint32_t m_busloadPollTime = 800;         ///< ms
    std::uint32_t m_canBaudrate = 100;             ///< kbit/s

    static const QString KEY_HOSTNAME;
    static const QString KEY_PORT;
    static const QString KEY_IP_ADDRESS;
    static const QString KEY_LOCAL_IP_ADDRESS;
    static const QString KEY_PROTOCOL;
    static const QString KEY_SERVICE;
    static const QString KEY_DHCP;
    static const QString KEY_AUTO_IP_UPDATE;
    static const QString KEY_UDP_BIND_ANY_IP;
    static const QString KEY_BUSLOAD_POLL_TIME;
    static const QString KEY_BUSLOAD_MEASURE_INTERVAL;
    static const QString KEY_CAN_BAUDRATE;
    static const QString KEY_PLUGIN_NAME;
};

} // namespace vexmor::Cim
