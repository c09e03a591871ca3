#include "cim/commonInfoInterface.h"

#include "vxCore/logging.h"

#include <QSettings>
#include <QStringList>

#include <cctype>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/cim/commonInfoInterface";

const QString COM_PREFIX = QStringLiteral("COM=");
const QString IP_PREFIX = QStringLiteral("IP=");
const QString PROTOCOL_INVALID = QStringLiteral("Invalid");
/// The texts of the protocols, in the order of EProtocolType.
const QString PROTOCOLS[] = {QStringLiteral("TCP"), QStringLiteral("UDP"), QStringLiteral("NA")};
constexpr int PROTOCOL_COUNT = 3;

const QString KEY_PLUGIN_NAME = QStringLiteral("PluginName");
const QString KEY_DESCRIPTION = QStringLiteral("Description");
const QString KEY_INTERFACE_ID = QStringLiteral("InterfaceId");
const QString KEY_FIRMWARE_VERSION = QStringLiteral("FirmwareVersion");
const QString KEY_PORT_ID = QStringLiteral("PortId");
const QString KEY_SCANABLE = QStringLiteral("Scanable");
const QString KEY_INTERFACE_TYPE = QStringLiteral("InterfaceType");

/// Returns whether two hexadecimal digits stand at `index`.
bool isHexByte(const QString& text, int index)
{
    const auto isDigit = [](QChar character) { return character.unicode() < 0x80 && isxdigit(character.unicode()); };
    return index + 1 < text.size() && isDigit(text.at(index)) && isDigit(text.at(index + 1));
}
} // namespace

CCommonInfo::CCommonInfo() : m_connectionState(eNotConnected), m_scanable(false) {}
CCommonInfo::CCommonInfo(const CCommonInfo& other) = default;
CCommonInfo& CCommonInfo::operator=(const CCommonInfo& other) = default;

bool CCommonInfo::operator==(const CCommonInfo& other) const
{
    return m_pluginName == other.m_pluginName && m_description == other.m_description &&
           m_uniqueName == other.m_uniqueName && m_connectionState == other.m_connectionState &&
           m_interfaceId == other.m_interfaceId && m_firmwareVersion == other.m_firmwareVersion &&
           m_port == other.m_port && m_type == other.m_type && m_scanable == other.m_scanable;
}

bool CCommonInfo::operator!=(const CCommonInfo& other) const
{
    return !(*this == other);
}

QString CCommonInfo::pluginName() const
{
    return m_pluginName;
}
void CCommonInfo::setPluginName(const QString& name)
{
    m_pluginName = name;
}
QString CCommonInfo::description() const
{
    return m_description;
}
void CCommonInfo::setDescription(const QString& description)
{
    m_description = description;
}
QString CCommonInfo::uniqueName() const
{
    return m_uniqueName;
}
void CCommonInfo::setUniqueName(const QString& name)
{
    m_uniqueName = name;
}
CCommonInfo::EInterfaceConnectionState CCommonInfo::connectionState() const
{
    return m_connectionState;
}
void CCommonInfo::setConnectionState(EInterfaceConnectionState state)
{
    m_connectionState = state;
}
QString CCommonInfo::interfaceId() const
{
    return m_interfaceId;
}
void CCommonInfo::setInterfaceId(const QString& id)
{
    m_interfaceId = id;
}
QString CCommonInfo::firmwareVersion() const
{
    return m_firmwareVersion;
}
void CCommonInfo::setFirmwareVersion(const QString& version)
{
    m_firmwareVersion = version;
}
QString CCommonInfo::port() const
{
    return m_port;
}
void CCommonInfo::setPort(const QString& port)
{
    m_port = port;
}
QString CCommonInfo::type() const
{
    return m_type;
}
void CCommonInfo::setType(const QString& type)
{
    m_type = type;
}
bool CCommonInfo::isScanable() const
{
    return m_scanable;
}
void CCommonInfo::setScanable(bool scanable)
{
    m_scanable = scanable;
}

QString CCommonInfo::buildComPortStr(const QString& port)
{
    return COM_PREFIX + port;
}

QString CCommonInfo::buildIpPortStr(const QString& address, unsigned short port, EProtocolType protocol)
{
    QString protocolText;
    protocolEnumToStr(protocol, protocolText);
    // Made without arg(), which would replace a %2 in the address text.
    return IP_PREFIX + address + QLatin1Char(':') + QString::number(port) + QLatin1Char(':') + protocolText;
}

bool CCommonInfo::isComPort() const
{
    return m_port.startsWith(COM_PREFIX);
}

bool CCommonInfo::isIpPort() const
{
    return m_port.startsWith(IP_PREFIX);
}

bool CCommonInfo::comPort(QString& port) const
{
    if (!isComPort()) {
        return false;
    }
    port = m_port.mid(COM_PREFIX.size());
    return true;
}

bool CCommonInfo::ipAddress(QString& address, QString& port) const
{
    if (!isIpPort()) {
        return false;
    }
    const QStringList parts = m_port.mid(IP_PREFIX.size()).split(QLatin1Char(':'), Qt::KeepEmptyParts);
    if (parts.size() != 3) {
        return false;
    }
    address = parts.at(0);
    port = parts.at(1);
    return true;
}

bool CCommonInfo::ipAddress(QString& address, QString& port, EProtocolType& protocol) const
{
    if (!ipAddress(address, port)) {
        return false;
    }
    protocolStrToEnum(m_port.section(QLatin1Char(':'), 2), protocol);
    return true;
}

bool CCommonInfo::protocolEnumToStr(EProtocolType protocol, QString& text)
{
    const int index = static_cast<int>(protocol);
    const bool known = index >= 0 && index < PROTOCOL_COUNT;
    text = known ? PROTOCOLS[index] : PROTOCOL_INVALID;
    return known;
}

bool CCommonInfo::protocolStrToEnum(const QString& text, EProtocolType& protocol)
{
    protocol = eProtocolInvalid;
    for (int index = 0; index < PROTOCOL_COUNT; ++index) {
        if (text == PROTOCOLS[index]) {
            protocol = static_cast<EProtocolType>(index);
            return true;
        }
    }
    VX_LOG(30, LOG_SOURCE, "Conversion of protocol string = '%s' to EProtoclType failed!",
           text.toLocal8Bit().constData());
    return false;
}

int CCommonInfo::loadSettings(QSettings& settings)
{
    m_description = settings.value(KEY_DESCRIPTION, m_description).toString();
    m_interfaceId = settings.value(KEY_INTERFACE_ID, m_interfaceId).toString();
    m_firmwareVersion = settings.value(KEY_FIRMWARE_VERSION, m_firmwareVersion).toString();
    m_port = settings.value(KEY_PORT_ID, m_port).toString();
    m_scanable = settings.value(KEY_SCANABLE, m_scanable).toBool();
    m_type = settings.value(KEY_INTERFACE_TYPE, m_type).toString();
    return 0;
}

int CCommonInfo::saveSettings(QSettings& settings) const
{
    settings.setValue(KEY_PLUGIN_NAME, m_pluginName);
    settings.setValue(KEY_DESCRIPTION, m_description);
    settings.setValue(KEY_INTERFACE_ID, m_interfaceId);
    settings.setValue(KEY_FIRMWARE_VERSION, m_firmwareVersion);
    settings.setValue(KEY_PORT_ID, m_port);
    settings.setValue(KEY_SCANABLE, m_scanable);
    settings.setValue(KEY_INTERFACE_TYPE, m_type);
    return 0;
}

QString CCommonInfo::settingsGroup() const
{
    QString group;
    for (int index = 0; index < m_uniqueName.size(); ++index) {
        const QChar character = m_uniqueName.at(index);
        if (character == QLatin1Char('/')) {
            group += QLatin1String("%2F");
        } else if (character == QLatin1Char('\\')) {
            group += QLatin1String("%5C");
        } else if (character == QLatin1Char('%') && isHexByte(m_uniqueName, index + 1)) {
            group += QLatin1String("%25");
        } else {
            group += character;
        }
    }
    return group;
}

QString CCommonInfo::uniqueNameOfSettingsGroup(const QString& group)
{
    QString name;
    for (int index = 0; index < group.size(); ++index) {
        const bool isEncoded = group.at(index) == QLatin1Char('%') && isHexByte(group, index + 1);
        name += isEncoded ? QChar(group.mid(index + 1, 2).toInt(nullptr, 16)) : group.at(index);
        index += isEncoded ? 2 : 0;
    }
    return name;
}

} // namespace vexmor::Cim
