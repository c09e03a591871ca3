#pragma once

#include "cim/commonInfoInterface.h"

#include <QChar>
#include <QHostAddress>
#include <QString>

#include <array>
#include <cstdint>

namespace vexmor::Cim
{

/// The parameters of the interface to one T93 gateway.
///
/// It is a plain value without a lock. The setters do not check their values. It loads itself from the settings store
/// of the application, and saves itself there.
class CConfigParamT93
{
public:
    /// Socket mode of the gateway; its texts are "CLIENT", "SERVER" and "Invalid".
    enum EServiceType : int { eServiceClient = 0, eServiceServer = 1, eServiceInvalid = 2 };

    /// A MAC address; the first byte is the leftmost when printed.
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
    /// Stores the value unchanged. With 0 the driver (CInterfaceT93) updates the load every 100 ms, and only the
    /// gateway's own measurement yields a value.
    void setBusloadPollTime(std::uint32_t milliseconds) { m_busloadPollTime = milliseconds; }
    std::uint32_t canBaudrate() const { return m_canBaudrate; }
    void setCanBaudrate(std::uint32_t kbitPerSecond) { m_canBaudrate = kbitPerSecond; }
    void setMacAddress(const MacAddress& address) { m_macAddress = address; }

    /// Returns the port text for the description of an interface, like IP=192.168.1.70:30000:TCP.
    QString ipPortString() const;
    /// Returns the MAC address: two lower-case hexadecimal digits per byte, with the separator between bytes.
    QString macAddressString(const QChar& separator) const;
    /// Returns the text of the protocol, and sets `ok` to true. For a protocol without a text, returns "Invalid" and
    /// sets `ok` to false.
    QString protocolTypeString(bool& ok) const;
    /// Returns the text of the service type, and sets `ok` to true. For a value without a text, returns "Invalid" and
    /// sets `ok` to false.
    QString serviceTypeString(bool& ok) const;

    /// Sets `text` to the text of a service type. Returns false, with the text "Invalid" and a log line of level 30,
    /// for a value that has none.
    static bool serviceEnumToStr(EServiceType type, QString& text);
    /// Sets `type` to the service type for a text (case-sensitive). Returns false, with `type` unchanged and a log line
    /// of level 30, for an unknown text.
    static bool serviceStrToEnum(const QString& text, EServiceType& type);

    /// Loads this object and `commonInfo` from the settings group of `commonInfo`'s unique name below `group`. Missing
    /// keys leave their fields unchanged. Returns 0, or without changing anything 7 when the group belongs to another
    /// plugin, 8 when a protocol or service is unknown, and 9 when an address is invalid.
    int loadSettings(const QString& group, CCommonInfo& commonInfo);
    /// Stores this object and `commonInfo` in the settings group of `commonInfo`'s unique name below `group`, in place
    /// of everything stored under this name. With an empty unique name the keys are stored directly in `group`, and
    /// nothing is removed. Returns 0, or 10 without writing anything when protocol or service have no text.
    int saveSettings(const QString& group, CCommonInfo& commonInfo);

private:
    EServiceType m_serviceType = eServiceServer;
    CCommonInfo::EProtocolType m_protocolType = CCommonInfo::eProtocolTcp;
    QHostAddress m_ipAddress;
    QHostAddress m_localIpAddress; ///< UDP: address of this computer to which the socket is bound.
    std::uint16_t m_port = 30000;  ///< TCP or UDP port of the gateway.
    bool m_udpBindAnyIp = false;   ///< UDP: bind the socket to all addresses of this computer.
    bool m_dhcp = false;           ///< Stored for the user; has no effect.
    bool m_autoIpUpdate = false;   ///< Stored for the user; has no effect.
    MacAddress m_macAddress{};     ///< MAC address that the gateway sent; not stored.
    QString m_hostname;
    std::uint16_t m_busloadMeasureInterval = 1000; ///< Time over which the gateway measures the bus load, in ms.
    std::uint32_t m_busloadPollTime = 800;         ///< Time between two updates of the bus load, in ms.
    std::uint32_t m_canBaudrate = 100;             ///< Bit rate in kbit/s.

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
