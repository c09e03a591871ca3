#include "apps/host/interfaceStore.h"

#include "apps/host/words.h"
#include "cim/canInterface.h"
#include "cim/resultCodes.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QThread>

#include <algorithm>
#include <iterator>

namespace vexmor::Apps
{
namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");
/// Maximum wait for the lock: longer than the 30 s after which Qt takes over an incomplete lock of a program that was
/// killed.
constexpr int LOCK_WAIT_MS = 60'000;
constexpr unsigned long LOCK_RETRY_MS = 10;
constexpr int ATTEMPTS = 3;

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
    m_settings.allKeys(); // reads the whole file, which QSettings otherwise postpones
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
    if (name.isEmpty()) { // an empty group name would mean all interfaces
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
    const auto removeAll = [&] {
        removeGroup(m_settings, groupOf(name));
        return Failure();
    };
    if (Failure failure = change({name}, removeAll)) {
        return failure;
    }
    return contains(name) ? SProblem{Words::tr("'%1' is stored for the whole system and cannot be removed").arg(name)}
                          : Failure();
}

Failure CInterfaceStore::put(const QMap<QString, Settings>& interfaces)
{
    return change(interfaces.keys(), [&] {
        for (auto one = interfaces.begin(); one != interfaces.end(); ++one) {
            const QString group = groupOf(one.key());
            removeGroup(m_settings, group);
            for (auto entry = one->begin(); entry != one->end(); ++entry) {
                m_settings.setValue(group + QLatin1Char('/') + entry.key(), entry.value());
            }
        }
        return Failure();
    });
}

Failure CInterfaceStore::load(Cim::CCanInterface& canInterface, const QString& name)
{
    setUniqueName(canInterface, name);
    Failure failure = failureOf(canInterface, canInterface.loadSettings(QString()));
    // Sets the port text of the description anew: another program may have stored it with another address, which a
    // later setCommonInfo with this description would set.
    canInterface.setProperty("Port", canInterface.property("Port"));
    return failure;
}

Failure CInterfaceStore::save(Cim::CCanInterface& canInterface, const QString& name)
{
    return change({name}, [&] {
        setUniqueName(canInterface, name);
        return failureOf(canInterface, canInterface.saveSettings(QString()));
    });
}

Failure CInterfaceStore::change(const QStringList& names, const std::function<Failure()>& make)
{
    if (!m_settings.isWritable()) { // this call also creates the folder of the file
        return notWritable();
    }
    QLockFile lock(m_settings.fileName() + QStringLiteral(".saving"));
    const QDeadlineTimer deadline(LOCK_WAIT_MS);
    // tryLock is called without a wait, because its own pauses grow to seconds.
    while (!lock.tryLock(0) && lock.error() == QLockFile::LockFailedError) {
        if (deadline.hasExpired()) {
            return SProblem{Words::tr("other programs keep the settings store %1 locked").arg(m_settings.fileName())};
        }
        QThread::msleep(LOCK_RETRY_MS);
    }
    const auto stored = [&] {
        QList<Settings> interfaces;
        std::transform(names.begin(), names.end(), std::back_inserter(interfaces),
                       [this](const QString& name) { return settings(name); });
        return interfaces;
    };
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
        readAnew();
        if (Failure failure = make()) {
            return failure;
        }
        const QList<Settings> expected = stored();
        m_settings.sync();
        if (!m_settings.isWritable() || m_settings.status() != QSettings::NoError) {
            return notWritable();
        }
        readAnew();
        if (stored() == expected) {
            return {};
        }
    }
    return notWritable();
}

void CInterfaceStore::readAnew()
{
    QFile file(m_settings.fileName());
    if (file.open(QFile::ReadWrite | QFile::ExistingOnly)) {
        const QDateTime next = std::max(QFileInfo(file).lastModified(), m_fileTime).addMSecs(1);
        m_fileTime = std::max(next, QDateTime::currentDateTime());
        file.setFileTime(m_fileTime, QFile::FileModificationTime);
    }
    m_settings.sync();
}

Failure CInterfaceStore::notWritable() const
{
    return SProblem{Words::tr("the settings store %1 cannot be written").arg(m_settings.fileName())};
}

} // namespace vexmor::Apps
