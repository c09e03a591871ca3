#pragma once

#include "cim/cimExport.h"

#include <QString>

class QSettings;

namespace vexmor::Cim
{

/// The description of a CAN interface in terms common to all plugins: which plugin made it, its names, how it is
/// reached, and whether it is connected.
///
/// It is a plain value without locks; each interface has one (`CCanInterface::commonInfo`). Texts are compared
/// case-sensitively.
class CIM_EXPORT CCommonInfo
{
public:
    /// Whether the link of an interface is up.
    enum EInterfaceConnectionState : int { eNotConnected = 0, eConnected = 1 };

    /// The transport protocol of an IP interface. The texts of its values are "TCP", "UDP", "NA" (not available) and
    /// "Invalid".
    enum EProtocolType : int { eProtocolTcp = 0, eProtocolUdp = 1, eProtocolNa = 2, eProtocolInvalid = 3 };

    /// Creates a description with empty texts, not connected and not scannable.
    CCommonInfo();
    CCommonInfo(const CCommonInfo& other);
    CCommonInfo& operator=(const CCommonInfo& other);
    /// Compares all nine fields, including the connection state.
    bool operator==(const CCommonInfo& other) const;
    bool operator!=(const CCommonInfo& other) const;

    /// The name of the plugin that made the interface.
    QString pluginName() const;
    void setPluginName(const QString& name);
    /// A text that describes the interface to the user.
    QString description() const;
    void setDescription(const QString& description);
    /// The name that identifies the interface in the settings store, where its settings are kept in the group
    /// `settingsGroup()`.
    QString uniqueName() const;
    void setUniqueName(const QString& name);
    /// Whether the link of an open interface is up; over UDP, the link is up from the successful open to the close. The
    /// state of a closed interface is "not connected", with two exceptions until the interface is first opened: a scan
    /// returns its interfaces as connected, because the gateway answered, and a clone keeps the state of its original.
    EInterfaceConnectionState connectionState() const;
    void setConnectionState(EInterfaceConnectionState state);
    /// The identifier of the device; for a gateway its MAC address, like 00:1a:2b:3c:4d:5e. Empty until the device has
    /// sent it once; the last known value is stored.
    QString interfaceId() const;
    void setInterfaceId(const QString& id);
    /// The firmware version of the device, like 1.05. Empty until the device has sent it once; the last known value is
    /// stored.
    QString firmwareVersion() const;
    void setFirmwareVersion(const QString& version);
    /// The port text, which says how the interface is reached. It has one of two forms: COM= and the name of a serial
    /// port, or IP= and address, port and protocol joined by colons, like IP=192.168.1.70:30000:TCP.
    QString port() const;
    void setPort(const QString& port);
    /// The type of the interface, for example "T93".
    QString type() const;
    void setType(const QString& type);
    /// Whether a scan can find interfaces of this type.
    bool isScanable() const;
    void setScanable(bool scanable);

    /// Returns the port text for a serial port.
    static QString buildComPortStr(const QString& port);
    /// Returns the port text for an IP interface. For an unknown protocol, the third part of the text is "Invalid".
    static QString buildIpPortStr(const QString& address, unsigned short port, EProtocolType protocol);
    /// Returns whether the port text begins with COM=.
    bool isComPort() const;
    /// Returns whether the port text begins with IP=.
    bool isIpPort() const;
    /// Sets `port` to the part of the port text after COM=. Returns false, with `port` unchanged, for any other form.
    bool comPort(QString& port) const;
    /// Sets the arguments to the address and the port in a port text of the form IP=, without checking them. Returns
    /// false, with the arguments unchanged, unless the port text has this form and exactly three parts; a port text
    /// with an IPv6 address, which contains colons, has more parts.
    bool ipAddress(QString& address, QString& port) const;
    /// Does the same, and sets `protocol`. For an unknown protocol text, this is `eProtocolInvalid`, and a line is
    /// logged; the result is true all the same.
    bool ipAddress(QString& address, QString& port, EProtocolType& protocol) const;

    /// Sets `text` to the text of a protocol. Returns false, with the text "Invalid", for a value that has none.
    static bool protocolEnumToStr(EProtocolType protocol, QString& text);
    /// Sets `protocol` to the value for a text (case-sensitive). Returns false, with `eProtocolInvalid` and a log line
    /// of level 30 (see vxCore/logging.h), for an unknown text.
    static bool protocolStrToEnum(const QString& text, EProtocolType& protocol);

    /// Reads the fields from the current group of `settings`; a missing key leaves its field unchanged. Plugin name,
    /// unique name and connection state are not read. Always returns 0.
    int loadSettings(QSettings& settings);
    /// Writes the fields to the current group of `settings`; unique name and connection state are not stored. Always
    /// returns 0.
    int saveSettings(QSettings& settings) const;

    /// Returns the name of this interface's settings group below the group of all interfaces. It is the unique name, in
    /// which "/", "\" and each "%" followed by two hexadecimal digits are percent-encoded (%2F, %5C, %25): no name
    /// reaches into the group of another interface, and no two names share a group. Returns an empty text for an empty
    /// unique name: such an interface stores its keys directly in the group of all interfaces.
    QString settingsGroup() const;
    /// Returns the unique name for a settings group: the inverse of `settingsGroup`.
    static QString uniqueNameOfSettingsGroup(const QString& group);

private:
    QString m_pluginName;
    QString m_description;
    QString m_uniqueName;
    EInterfaceConnectionState m_connectionState;
    QString m_interfaceId;
    QString m_firmwareVersion;
    QString m_port;
    QString m_type;
    bool m_scanable;
};

} // namespace vexmor::Cim
