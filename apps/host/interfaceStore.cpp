#include "apps/host/interfaceStore.h"

#include "apps/host/words.h"
#include "cim/canInterface.h"
#include "cim/resultCodes.h"

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

/// Removes the keys of a group one by one: removing the group would also remove a key of the same name beside it, which
/// belongs to an interface without a name.
void removeGroup(QSettings& settings, const QString& group)
{
    settings.beginGroup(group);
    for (const QString& key : settings.allKeys()) {
        settings.remove(key);
    }
    settings.endGroup();
}

Failure failureOf(Cim::CCanInterface& canInterface, int code)
{
    return code == Cim::RC_OK ? Failure() : SProblem{canInterface.errorCodeToString(code), code};
}
} // namespace

CInterfaceStore::CInterfaceStore(const QString& organization, const QString& application)
    : m_settings(QSettings::NativeFormat, QSettings::UserScope, organization, application)
{
}

Failure CInterfaceStore::failure()
{
    m_settings.allKeys(); // as much as is needed of a file is read when it is needed
    return m_settings.status() == QSettings::NoError
               ? Failure()
               : SProblem{Words::tr("the settings store %1 cannot be read").arg(m_settings.fileName())};
}

QStringList CInterfaceStore::names()
{
    m_settings.beginGroup(GROUP);
    QStringList names;
    for (const QString& group : m_settings.childGroups()) {
        names.append(Cim::CCommonInfo::uniqueNameOfSettingsGroup(group));
    }
    m_settings.endGroup();
    names.sort();
    return names;
}

bool CInterfaceStore::contains(const QString& name)
{
    return !settings(name).isEmpty();
}

Settings CInterfaceStore::settings(const QString& name)
{
    Settings values;
    if (name.isEmpty()) { // would stand for all of them
        return values;
    }
    m_settings.beginGroup(groupOf(name));
    for (const QString& key : m_settings.childKeys()) {
        values.insert(key, m_settings.value(key).toString());
    }
    m_settings.endGroup();
    return values;
}

Failure CInterfaceStore::remove(const QString& name)
{
    if (!contains(name)) {
        return wrongUsage(Words::tr("no interface is stored under the name '%1'").arg(name));
    }
    removeGroup(m_settings, groupOf(name));
    if (Failure failure = complete()) {
        return failure;
    }
    return contains(name) ? SProblem{Words::tr("'%1' stands in the store of the whole system and stays").arg(name)}
                          : Failure();
}

Failure CInterfaceStore::put(const QMap<QString, Settings>& interfaces)
{
    for (auto one = interfaces.begin(); one != interfaces.end(); ++one) {
        const QString group = groupOf(one.key());
        removeGroup(m_settings, group);
        for (auto entry = one->begin(); entry != one->end(); ++entry) {
            m_settings.setValue(group + QLatin1Char('/') + entry.key(), entry.value());
        }
    }
    return complete();
}

Failure CInterfaceStore::load(Cim::CCanInterface& canInterface, const QString& name)
{
    setUniqueName(canInterface, name);
    Failure failure = failureOf(canInterface, canInterface.loadSettings(QString()));
    // The description's port text follows: as stored by others it may name another gateway, and whoever hands the
    // description over again would be sent there.
    canInterface.setProperty("Port", canInterface.property("Port"));
    return failure;
}

Failure CInterfaceStore::save(Cim::CCanInterface& canInterface, const QString& name)
{
    if (!m_settings.isWritable()) {
        return notWritable();
    }
    setUniqueName(canInterface, name);
    const Failure failure = failureOf(canInterface, canInterface.saveSettings(QString()));
    return failure ? failure : complete();
}

Failure CInterfaceStore::complete()
{
    m_settings.sync();
    return m_settings.isWritable() && m_settings.status() == QSettings::NoError ? Failure() : notWritable();
}

Failure CInterfaceStore::notWritable() const
{
    return SProblem{Words::tr("the settings store %1 cannot be written").arg(m_settings.fileName())};
}

} // namespace vexmor::Apps
