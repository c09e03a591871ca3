#include "apps/common/interfaceStore.h"

#include "apps/common/failure.h"
#include "cim/canInterface.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

namespace vexmor::Apps
{
namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");
constexpr int CODE_BAUDRATE_NOT_SUPPORTED = 5;

QString groupOf(const QString& name)
{
    Cim::CCommonInfo info;
    info.setUniqueName(name);
    return GROUP + QLatin1Char('/') + info.settingsGroup();
}

/// The directory above the user's store: what QSettings::setPath sets.
QString storePath()
{
    const QString organisationPath = QFileInfo(QSettings().fileName()).path();
    return QFileInfo(organisationPath).path();
}

void setStorePath(const QString& path)
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, path);
}

/// In memory where the system offers that: what is stored for a moment need not wait for a disk.
QString templateOfDirectory()
{
    const QFileInfo memory(QStringLiteral("/dev/shm"));
    const QString parent = memory.isDir() && memory.isWritable() ? memory.filePath() : QDir::tempPath();
    return parent + QStringLiteral("/cim-XXXXXX");
}

/// For its lifetime every QSettings that is made is that of an empty store in a directory of its own.
class CPrivateStore
{
public:
    CPrivateStore() : m_userPath(storePath())
    {
        if (!m_directory.isValid()) {
            failRefused(m_directory.errorString());
        }
        setStorePath(m_directory.path());
    }
    ~CPrivateStore() { setStorePath(m_userPath); }
    CPrivateStore(const CPrivateStore&) = delete;
    CPrivateStore& operator=(const CPrivateStore&) = delete;

private:
    const QString m_userPath;
    const QTemporaryDir m_directory{templateOfDirectory()};
};

Settings valuesIn(const QString& group)
{
    QSettings settings;
    settings.beginGroup(group);
    Settings values;
    for (const QString& key : settings.childKeys()) {
        values.insert(key, settings.value(key).toString());
    }
    return values;
}

/// The port text of an interface stands beside address, port and protocol, and must tell the same.
void setPortText(Cim::CCanInterface& canInterface, const Settings& settings)
{
    const Cim::CCommonInfo defaults = canInterface.commonInfo();
    QString address;
    QString port;
    Cim::CCommonInfo::EProtocolType protocol = Cim::CCommonInfo::eProtocolTcp;
    defaults.ipAddress(address, port, protocol);
    address = settings.value(StoreKey::ADDRESS, address);
    port = settings.value(StoreKey::PORT, port);
    if (settings.contains(StoreKey::PROTOCOL)) {
        Cim::CCommonInfo::protocolStrToEnum(settings.value(StoreKey::PROTOCOL), protocol);
    }
    Cim::CCommonInfo info = defaults;
    info.setPort(Cim::CCommonInfo::buildIpPortStr(address, port.toUShort(), protocol));
    canInterface.setCommonInfo(info);
}

void requireStored(const QString& name)
{
    if (!isStored(name)) {
        failUsage(
            QStringLiteral("no interface is stored under the name '%1' (cimctl list shows those that are)").arg(name));
    }
}

/// An interface without a name has its keys beside the groups: one that is named like this group stays.
void removeGroup(QSettings& settings, const QString& group)
{
    const QVariant namesake = settings.value(group);
    settings.remove(group);
    if (namesake.isValid()) {
        settings.setValue(group, namesake);
    }
}

/// A change of the store that is told of when it fails: QSettings itself tells nobody when what it holds does not reach
/// the disk in the end.
class CStoreChange
{
public:
    CStoreChange() { require(m_settings.isWritable()); }
    QSettings& settings() { return m_settings; }
    /// Writes all that was changed since, also through other objects.
    void complete()
    {
        m_settings.sync();
        require(m_settings.status() == QSettings::NoError);
    }

private:
    void require(bool fulfilled) const
    {
        if (!fulfilled) {
            failRefused(QStringLiteral("the settings store %1 cannot be written").arg(m_settings.fileName()));
        }
    }

    QSettings m_settings; ///< what another object could not write waits here
};
} // namespace

QStringList storedNames()
{
    QSettings settings;
    settings.beginGroup(GROUP);
    QStringList names;
    for (const QString& group : settings.childGroups()) {
        names.append(Cim::CCommonInfo::uniqueNameOfSettingsGroup(group));
    }
    names.sort();
    return names;
}

bool isStored(const QString& name)
{
    return !name.isEmpty() && !valuesIn(groupOf(name)).isEmpty();
}

Settings storedSettings(const QString& name)
{
    requireStored(name);
    return valuesIn(groupOf(name));
}

void removeStored(const QString& name)
{
    requireStored(name); // an empty name would stand for all of them
    CStoreChange change;
    removeGroup(change.settings(), groupOf(name));
    change.complete();
    if (isStored(name)) {
        failRefused(QStringLiteral("'%1' stands in the store of the whole system and stays").arg(name));
    }
}

void storeSettings(const QMap<QString, Settings>& interfaces)
{
    CStoreChange change;
    for (auto one = interfaces.begin(); one != interfaces.end(); ++one) {
        const QString group = groupOf(one.key());
        removeGroup(change.settings(), group);
        for (auto entry = one->begin(); entry != one->end(); ++entry) {
            change.settings().setValue(group + QLatin1Char('/') + entry.key(), entry.value());
        }
    }
    change.complete();
}

void applySettings(Cim::CCanInterface& canInterface, const Settings& settings)
{
    const CPrivateStore privateStore;
    const QString group = QStringLiteral("New");
    {
        QSettings values;
        values.beginGroup(group);
        for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
            values.setValue(entry.key(), entry.value());
        }
    }
    const int code = canInterface.loadSettings(group);
    if (code != 0) {
        failRefused(canInterface.errorCodeToString(code), code);
    }
    if (settings.contains(StoreKey::BAUDRATE) &&
        !canInterface.setBaudrate(settings.value(StoreKey::BAUDRATE).toInt())) {
        failRefused(canInterface.errorCodeToString(CODE_BAUDRATE_NOT_SUPPORTED), CODE_BAUDRATE_NOT_SUPPORTED);
    }
    setPortText(canInterface, settings);
}

Settings settingsOf(Cim::CCanInterface& canInterface)
{
    const CPrivateStore privateStore;
    const bool wasStored = canInterface.saveSettings(GROUP) == 0;
    return wasStored ? valuesIn(groupOf(canInterface.commonInfo().uniqueName())) : Settings();
}

void loadStored(Cim::CCanInterface& canInterface, const QString& name)
{
    Cim::CCommonInfo info = canInterface.commonInfo();
    info.setUniqueName(name);
    canInterface.setCommonInfo(info);
    const int code = canInterface.loadSettings(QString());
    if (code != 0) {
        failRefused(canInterface.errorCodeToString(code), code);
    }
}

void store(Cim::CCanInterface& canInterface, const QString& name)
{
    Cim::CCommonInfo info = canInterface.commonInfo();
    info.setUniqueName(name);
    canInterface.setCommonInfo(info);
    CStoreChange change;
    const int code = canInterface.saveSettings(QString());
    if (code != 0) {
        failRefused(canInterface.errorCodeToString(code), code);
    }
    change.complete();
}

} // namespace vexmor::Apps
