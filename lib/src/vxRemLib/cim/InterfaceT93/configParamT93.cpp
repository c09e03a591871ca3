#include "InterfaceT93/configParamT93.h"

#include "cim/resultCodes.h"
#include "vxCore/logging.h"

#include <QSettings>
#include <QStringList>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/configParamT93";

constexpr int SERVICE_COUNT = 3;
const QString SERVICES[SERVICE_COUNT] = {QStringLiteral("CLIENT"), QStringLiteral("SERVER"),
                                         QStringLiteral("Invalid")}; // in the order of EServiceType

/// Opens a settings group for the lifetime of this object; an empty name opens none.
class CSettingsGroup
{
public:
    CSettingsGroup(QSettings& settings, const QString& name) : m_settings(settings), m_open(!name.isEmpty())
    {
        if (m_open) {
            m_settings.beginGroup(name);
        }
    }
    ~CSettingsGroup()
    {
        if (m_open) {
            m_settings.endGroup();
        }
    }
    CSettingsGroup(const CSettingsGroup&) = delete;
    CSettingsGroup& operator=(const CSettingsGroup&) = delete;

private:
    QSettings& m_settings;
    const bool m_open;
};

/// Reads the address stored under a key; without such a key, `address` is unchanged. Returns false, with the stored
/// text in `text`, when it is not an address.
bool readAddress(const QSettings& settings, const QString& key, QHostAddress& address, QString& text)
{
    if (!settings.contains(key)) {
        return true;
    }
    text = settings.value(key).toString();
    return address.setAddress(text);
}

unsigned int flag(bool value)
{
    return value ? 1U : 0U;
}
} // namespace

const QString CConfigParamT93::KEY_HOSTNAME = QStringLiteral("Hostname");
const QString CConfigParamT93::KEY_PORT = QStringLiteral("Port");
const QString CConfigParamT93::KEY_IP_ADDRESS = QStringLiteral("IP-Address");
const QString CConfigParamT93::KEY_LOCAL_IP_ADDRESS = QStringLiteral("Local-IP-Address");
const QString CConfigParamT93::KEY_PROTOCOL = QStringLiteral("Protocol");
const QString CConfigParamT93::KEY_SERVICE = QStringLiteral("Service");
const QString CConfigParamT93::KEY_DHCP = QStringLiteral("Dhcp");
const QString CConfigParamT93::KEY_AUTO_IP_UPDATE = QStringLiteral("AutoIpUpdate");
const QString CConfigParamT93::KEY_UDP_BIND_ANY_IP = QStringLiteral("UdpBindAnyIp");
const QString CConfigParamT93::KEY_BUSLOAD_POLL_TIME = QStringLiteral("BusloadPollTime");
const QString CConfigParamT93::KEY_BUSLOAD_MEASURE_INTERVAL = QStringLiteral("BusloadMeasureInterval");
const QString CConfigParamT93::KEY_CAN_BAUDRATE = QStringLiteral("CanBaudrate");
const QString CConfigParamT93::KEY_PLUGIN_NAME = QStringLiteral("PluginName");

CConfigParamT93::CConfigParamT93()
    : m_ipAddress(QStringLiteral("192.168.1.70")), m_localIpAddress(QStringLiteral("0.0.0.0"))
{
}

CConfigParamT93::CConfigParamT93(const CConfigParamT93& other) = default;
CConfigParamT93& CConfigParamT93::operator=(const CConfigParamT93& other) = default;
CConfigParamT93::~CConfigParamT93() = default;

QString CConfigParamT93::ipPortString() const
{
    return CCommonInfo::buildIpPortStr(m_ipAddress.toString(), m_port, m_protocolType);
}

QString CConfigParamT93::macAddressString(const QChar& separator) const
{
    QStringList bytes;
    for (const std::uint8_t byte : m_macAddress) {
        bytes.append(QStringLiteral("%1").arg(byte, 2, 16, QLatin1Char('0')));
    }
    return bytes.join(separator);
}

QString CConfigParamT93::protocolTypeString(bool& ok) const
{
    QString text;
    ok = CCommonInfo::protocolEnumToStr(m_protocolType, text);
    return text;
}

QString CConfigParamT93::serviceTypeString(bool& ok) const
{
    QString text;
    ok = serviceEnumToStr(m_serviceType, text);
    return text;
}

bool CConfigParamT93::serviceEnumToStr(EServiceType type, QString& text)
{
    const int index = static_cast<int>(type);
    if (index < 0 || index >= SERVICE_COUNT) {
        VX_LOG(30, LOG_SOURCE, "Conversion of service = %d to string failed!", index);
        text = SERVICES[eServiceInvalid];
        return false;
    }
    text = SERVICES[index];
    return true;
}

bool CConfigParamT93::serviceStrToEnum(const QString& text, EServiceType& type)
{
    for (int index = 0; index < SERVICE_COUNT; ++index) {
        if (text == SERVICES[index]) {
            type = static_cast<EServiceType>(index);
            return true;
        }
    }
    VX_LOG(30, LOG_SOURCE, "Conversion of service '%s' to EServiceType failed!", text.toLocal8Bit().constData());
    return false;
}

int CConfigParamT93::loadSettings(const QString& group, CCommonInfo& commonInfo)
{
    QSettings settings;
    const CSettingsGroup outer(settings, group);
    const CSettingsGroup inner(settings, commonInfo.settingsGroup());

    if (settings.contains(KEY_PLUGIN_NAME)) {
        const QString pluginName = settings.value(KEY_PLUGIN_NAME).toString();
        if (pluginName != commonInfo.pluginName()) {
            VX_LOG(30, LOG_SOURCE, "Plugin T93 cannot change to '%s' when loading settings!",
                   pluginName.toLocal8Bit().constData());
            return RC_PLUGIN_NAME_CHANGE;
        }
    }

    // Everything that can fail comes before the first field is changed.
    QString text;
    QHostAddress ipAddress = m_ipAddress;
    if (!readAddress(settings, KEY_IP_ADDRESS, ipAddress, text)) {
        VX_LOG(50, LOG_SOURCE, "Could not convert '%s' to an IP address.", text.toLocal8Bit().constData());
        return RC_STRING_TO_ADDRESS;
    }
    QHostAddress localIpAddress = m_localIpAddress;
    if (!readAddress(settings, KEY_LOCAL_IP_ADDRESS, localIpAddress, text)) {
        VX_LOG(50, LOG_SOURCE, "could not convert '%s' to an IP address for local IP.", text.toLocal8Bit().constData());
        return RC_STRING_TO_ADDRESS;
    }
    CCommonInfo::EProtocolType protocolType = m_protocolType;
    if (settings.contains(KEY_PROTOCOL)) {
        text = settings.value(KEY_PROTOCOL).toString();
        if (!CCommonInfo::protocolStrToEnum(text, protocolType)) {
            VX_LOG(50, LOG_SOURCE, "could not convert '%s' to a protocol type.", text.toLocal8Bit().constData());
            return RC_STRING_TO_ENUM;
        }
    }
    EServiceType serviceType = m_serviceType;
    if (settings.contains(KEY_SERVICE)) {
        text = settings.value(KEY_SERVICE).toString();
        if (!serviceStrToEnum(text, serviceType)) {
            VX_LOG(50, LOG_SOURCE, "could not convert '%s' to a service type.", text.toLocal8Bit().constData());
            return RC_STRING_TO_ENUM;
        }
    }

    commonInfo.loadSettings(settings);
    m_hostname = settings.value(KEY_HOSTNAME, m_hostname).toString();
    m_port = static_cast<std::uint16_t>(settings.value(KEY_PORT, m_port).toInt());
    m_ipAddress = ipAddress;
    m_protocolType = protocolType;
    m_serviceType = serviceType;
    m_dhcp = settings.value(KEY_DHCP, m_dhcp).toBool();
    m_autoIpUpdate = settings.value(KEY_AUTO_IP_UPDATE, m_autoIpUpdate).toBool();
    m_udpBindAnyIp = settings.value(KEY_UDP_BIND_ANY_IP, m_udpBindAnyIp).toBool();
    m_localIpAddress = localIpAddress;
    m_busloadPollTime = settings.value(KEY_BUSLOAD_POLL_TIME, m_busloadPollTime).toUInt();
    m_busloadMeasureInterval =
        static_cast<std::uint16_t>(settings.value(KEY_BUSLOAD_MEASURE_INTERVAL, m_busloadMeasureInterval).toInt());
    m_canBaudrate = settings.value(KEY_CAN_BAUDRATE, m_canBaudrate).toUInt();
    return RC_OK;
}

int CConfigParamT93::saveSettings(const QString& group, CCommonInfo& commonInfo)
{
    bool ok = false;
    const QString protocol = protocolTypeString(ok);
    if (!ok) {
        VX_LOG(50, LOG_SOURCE, "cannot convert protocol =%d to string!", static_cast<int>(m_protocolType));
        return RC_ENUM_TO_STRING;
    }
    const QString service = serviceTypeString(ok);
    if (!ok) {
        VX_LOG(50, LOG_SOURCE, "cannot convert service =%d to string!", static_cast<int>(m_serviceType));
        return RC_ENUM_TO_STRING;
    }

    QSettings settings;
    const CSettingsGroup outer(settings, group);
    const QString ownGroup = commonInfo.settingsGroup();
    if (!ownGroup.isEmpty()) { // removing an empty key would remove all interfaces
        // A key of the unnamed interface may have the name of this group, and must stay.
        const QVariant namesake = settings.value(ownGroup);
        settings.remove(ownGroup);
        if (namesake.isValid()) {
            settings.setValue(ownGroup, namesake);
        }
    }
    const CSettingsGroup inner(settings, ownGroup);

    commonInfo.saveSettings(settings);
    settings.setValue(KEY_HOSTNAME, m_hostname);
    settings.setValue(KEY_PORT, QString::number(m_port));
    settings.setValue(KEY_IP_ADDRESS, m_ipAddress.toString());
    settings.setValue(KEY_PROTOCOL, protocol);
    settings.setValue(KEY_SERVICE, service);
    settings.setValue(KEY_DHCP, flag(m_dhcp));
    settings.setValue(KEY_AUTO_IP_UPDATE, flag(m_autoIpUpdate));
    settings.setValue(KEY_LOCAL_IP_ADDRESS, m_localIpAddress.toString());
    settings.setValue(KEY_UDP_BIND_ANY_IP, flag(m_udpBindAnyIp));
    settings.setValue(KEY_BUSLOAD_POLL_TIME, m_busloadPollTime);
    settings.setValue(KEY_BUSLOAD_MEASURE_INTERVAL, static_cast<unsigned int>(m_busloadMeasureInterval));
    settings.setValue(KEY_CAN_BAUDRATE, m_canBaudrate);
    return RC_OK;
}

} // namespace vexmor::Cim
