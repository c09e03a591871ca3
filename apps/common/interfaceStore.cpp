#include "apps/common/interfaceStore.h"

#include "apps/common/failure.h"
#include "cim/canInterface.h"
#include "cim/resultCodes.h"

#include <QSettings>
#include <QVariant>

namespace vexmor::Apps
{
namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");

QString groupOf(const QString& name)
{
    Cim::CCommonInfo info;
    info.setUniqueName(name);
    return GROUP + QLatin1Char('/') + info.settingsGroup();
}

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

/// The property by which an interface shows a parameter: its key without dashes.
QByteArray propertyOf(const QString& key)
{
    return QString(key).remove(QLatin1Char('-')).toLatin1();
}

/// Sets a parameter; false when the interface does not have it, or refuses the value.
bool setParameter(Cim::CCanInterface& canInterface, const QByteArray& property, QVariant value)
{
    if (canInterface.metaObject()->indexOfProperty(property) < 0 || !canInterface.setProperty(property, value)) {
        return false;
    }
    const QVariant taken = canInterface.property(property);
    return value.convert(static_cast<int>(taken.type())) && value == taken;
}

/// As the store has it: flags as numbers.
QString textOf(const QVariant& value)
{
    return value.type() == QVariant::Bool ? QString::number(value.toInt()) : value.toString();
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
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        if (setParameter(canInterface, propertyOf(entry.key()), *entry)) {
            continue;
        }
        if (entry.key() == StoreKey::BAUDRATE) {
            failRefused(canInterface.errorCodeToString(Cim::RC_BAUDRATE_NOT_SUPPORTED), Cim::RC_BAUDRATE_NOT_SUPPORTED);
        }
        failRefused(QStringLiteral("the interface does not take %1 %2").arg(entry.key(), *entry));
    }
}

Settings settingsOf(Cim::CCanInterface& canInterface)
{
    const Cim::CCommonInfo& info = canInterface.commonInfo();
    Settings settings{
        {StoreKey::PLUGIN_NAME, info.pluginName()},   {StoreKey::DESCRIPTION, info.description()},
        {StoreKey::INTERFACE_ID, info.interfaceId()}, {StoreKey::FIRMWARE_VERSION, info.firmwareVersion()},
        {StoreKey::PORT_TEXT, info.port()},           {StoreKey::SCANABLE, QVariant(info.isScanable()).toString()},
        {StoreKey::INTERFACE_TYPE, info.type()}};
    for (const QLatin1String key : StoreKey::PARAMETERS) {
        settings.insert(key, textOf(canInterface.property(propertyOf(key))));
    }
    return settings;
}

void loadStored(Cim::CCanInterface& canInterface, const QString& name)
{
    Cim::CCommonInfo info = canInterface.commonInfo();
    info.setUniqueName(name);
    canInterface.setCommonInfo(info);
    const int code = canInterface.loadSettings(QString());
    if (code != Cim::RC_OK) {
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
    if (code != Cim::RC_OK) {
        failRefused(canInterface.errorCodeToString(code), code);
    }
    change.complete();
}

} // namespace vexmor::Apps
