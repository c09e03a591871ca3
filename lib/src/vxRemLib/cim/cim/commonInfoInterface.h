#pragma once

#include "cim/cimExport.h"

#include <QString>

class QSettings;

namespace vexmor::Cim
{

/// Describes one CAN interface to the host, in terms that every plugin shares: who made it, what to call it, how it is
/// reached, whether it is connected.
///
/// A plain value without locks; every interface owns one (`CCanInterface::commonInfo`). Texts are compared
/// case-sensitively.
class CIM_EXPORT CCommonInfo
{
public:
    enum EInterfaceConnectionState : int { eNotConnected = 0, eConnected = 1 };

    /// Transport protocol of an IP interface; its texts are "TCP", "UDP", "NA" and "Invalid".
    enum EProtocolType : int { eProtocolTcp = 0, eProtocolUdp = 1, eProtocolNa = 2, eProtocolInvalid = 3 };

    /// All texts empty, not connected, not scannable.
    CCommonInfo();
    CCommonInfo(const CCommonInfo& other);
    CCommonInfo& operator=(const CCommonInfo& other);
    /// Equal when all nine fields are equal, the connection state included.
    bool operator==(const CCommonInfo& other) const;
    bool operator!=(const CCommonInfo& other) const;

    /// Name of the plugin that made the interface.
    QString pluginName() const;
    void setPluginName(const QString& name);
    /// Text shown to the user.
    QString description() const;
    void setDescription(const QString& description);
    /// Tells this interface from all others; its settings are stored in the group `settingsGroup()`, in the store of
    /// the organisation and application that the host named to QCoreApplication ("Unknown Organization" if it did not).
    QString uniqueName() const;
    void setUniqueName(const QString& name);
    /// Of an open interface: whether its link stands, over UDP from the successful open to the close. In the result of
    /// a scan it says connected, for the gateway answered, and a clone has that of its original: both are closed, and
    /// the state becomes true with the first open.
    EInterfaceConnectionState connectionState() const;
    void setConnectionState(EInterfaceConnectionState state);
    /// Identifier of the device; for a gateway its MAC address, like 00:1a:2b:3c:4d:5e.
    QString interfaceId() const;
    void setInterfaceId(const QString& id);
    QString firmwareVersion() const;
    void setFirmwareVersion(const QString& version);
    /// How the interface is reached, in one of two forms: COM= and the serial port's text, or IP= and address, port and
    /// protocol text joined by colons, like IP=192.168.1.70:30000:TCP.
    QString port() const;
    void setPort(const QString& port);
    /// Interface type, for example "T93".
    QString type() const;
    void setType(const QString& type);
    /// True for interfaces of a kind that a scan can find.
    bool isScanable() const;
    void setScanable(bool scanable);

    static QString buildComPortStr(const QString& port);
    /// An unknown protocol gives the text "Invalid" in the third part.
    static QString buildIpPortStr(const QString& address, unsigned short port, EProtocolType protocol);
    bool isComPort() const;
    bool isIpPort() const;
    /// The part behind COM=; false, and `port` untouched, for any other port text.
    bool comPort(QString& port) const;
    /// The parts of an IP port text, as they stand in it; false, and the outputs untouched, unless it has exactly
    /// three (an IPv6 address, which has colons of its own, never fits). An unknown protocol text gives
    /// `eProtocolInvalid` (and a log line), but is no failure.
    bool ipAddress(QString& address, QString& port) const;
    bool ipAddress(QString& address, QString& port, EProtocolType& protocol) const;

    /// False, with the text "Invalid", for a value that has no text of its own.
    static bool protocolEnumToStr(EProtocolType protocol, QString& text);
    /// Case-sensitive; false, with `eProtocolInvalid` and a log line of level 30, for an unknown text.
    static bool protocolStrToEnum(const QString& text, EProtocolType& protocol);

    /// Reads the fields from the group that is open on `settings`; a missing key leaves its field unchanged. The plugin
    /// name, the unique name and the connection state are never read. Returns 0.
    int loadSettings(QSettings& settings);
    /// Writes the fields to the group that is open on `settings`; the unique name and the connection state are not
    /// stored. Returns 0.
    int saveSettings(QSettings& settings) const;

    /// Name of the settings group of this interface, below the group of all interfaces: the unique name itself. Only
    /// "/", "\" and a "%" that two hexadecimal digits follow are percent-encoded (%2F, %5C, %25), so that no name can
    /// reach into another interface's group, and no two names share one.
    /// Empty for an empty unique name: such an interface stores its keys in the group of all interfaces.
    QString settingsGroup() const;
    /// The unique name that a settings group stands for: the inverse of `settingsGroup`.
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
