#include "apps/host/interfaceSettings.h"

#include "apps/host/words.h"
#include "cim/canInterface.h"
#include "cim/resultCodes.h"

#include <QVariant>

namespace vexmor::Apps
{
namespace
{
/// Returns the property for a parameter: its key without dashes.
QByteArray propertyOf(const QString& key)
{
    return QString(key).remove(QLatin1Char('-')).toLatin1();
}

/// Sets a parameter. Returns false when the interface does not have it or refuses the value.
bool setParameter(Cim::CCanInterface& canInterface, const QByteArray& property, const QVariant& value)
{
    if (canInterface.metaObject()->indexOfProperty(property) < 0 || !canInterface.setProperty(property, value)) {
        return false;
    }
    const QVariant taken = canInterface.property(property);
    switch (taken.userType()) {
    case QMetaType::Bool:
        return value.toBool() == taken.toBool();
    case QMetaType::LongLong:
        return value.toLongLong() == taken.toLongLong();
    default:
        return value.toString() == taken.toString();
    }
}

/// Returns the text of a value as the store has it: a flag is a number there.
QString textOf(const QVariant& value)
{
    return value.userType() == QMetaType::Bool ? QString::number(value.toInt()) : value.toString();
}
} // namespace

Failure applySettings(Cim::CCanInterface& canInterface, const Settings& settings)
{
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        if (entry.key() == StoreKey::DESCRIPTION) {
            Cim::CCommonInfo info = canInterface.commonInfo();
            info.setDescription(*entry);
            canInterface.setCommonInfo(info);
            continue;
        }
        if (setParameter(canInterface, propertyOf(entry.key()), *entry)) {
            continue;
        }
        if (entry.key() == StoreKey::BAUDRATE) {
            return SProblem{canInterface.errorCodeToString(Cim::RC_BAUDRATE_NOT_SUPPORTED),
                            Cim::RC_BAUDRATE_NOT_SUPPORTED};
        }
        return SProblem{Words::tr("the interface does not accept %1 %2").arg(entry.key(), *entry)};
    }
    return {};
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

void setUniqueName(Cim::CCanInterface& canInterface, const QString& name)
{
    Cim::CCommonInfo info = canInterface.commonInfo();
    info.setUniqueName(name);
    canInterface.setCommonInfo(info);
}

} // namespace vexmor::Apps
