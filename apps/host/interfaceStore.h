#pragma once

#include "apps/host/interfaceSettings.h"

#include <QDateTime>
#include <QSettings>
#include <QStringList>

#include <functional>

namespace vexmor::Apps
{

/// The interfaces in the settings store, which all programs with the organisation "Vexmor" and the application "Cim"
/// share: one group per interface below "CanInterfaces", named by CCommonInfo::settingsGroup.
///
/// The constructor reads the file. Later changes by other programs are not seen until this object makes a change
/// itself: create a new object for each operation of the user. Changes are made under a lock common to all these
/// programs. When a change returns without a failure, it was written to the disk and verified by reading it back.
class CInterfaceStore
{
public:
    /// Opens the store of this program's organisation and application, in the program's default format, which
    /// interfaces themselves also use.
    CInterfaceStore() = default;
    /// Opens the store of another program, in the native format of the platform.
    CInterfaceStore(const QString& organization, const QString& application);

    /// Fails when the file cannot be read; the store then appears empty.
    Failure failure();
    /// Returns the names of the stored interfaces, in alphabetical order.
    QStringList names();
    bool contains(const QString& name);
    /// Returns everything stored under a name; empty for an unknown name.
    Settings settings(const QString& name);
    /// Removes the interface of this name.
    Failure remove(const QString& name);
    /// Stores settings (from `settingsOf`) by name, each in place of everything stored under its name, all in one
    /// change.
    Failure put(const QMap<QString, Settings>& interfaces);

    /// Sets the name of a closed interface and loads its settings.
    static Failure load(Cim::CCanInterface& canInterface, const QString& name);
    /// Sets the name of a closed interface and lets it store itself, in place of everything stored under that name.
    Failure save(Cim::CCanInterface& canInterface, const QString& name);

private:
    /// Calls `make`, which changes the interfaces `names`, under the lock, and writes everything that was changed, also
    /// through other QSettings objects of this program. Repeats this a few times when the QSettings of another program
    /// has overwritten the change.
    Failure change(const QStringList& names, const std::function<Failure()>& make);
    /// Reads the file, whether or not QSettings sees a change. QSettings notices a change by size and time of the file,
    /// and misses one of equal size within a tick of the file system's clock; therefore this sets a new time first.
    void readAnew();
    Failure notWritable() const;

    QSettings m_settings; ///< Qt shares unwritten changes among all QSettings objects of a file.
    QDateTime m_fileTime; ///< Last time set on the file.
};

} // namespace vexmor::Apps
