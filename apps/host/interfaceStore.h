#pragma once

#include "apps/host/interfaceSettings.h"

#include <QDateTime>
#include <QSettings>
#include <QStringList>

#include <functional>

namespace vexmor::Apps
{

/// The interfaces kept in the settings store, shared with every host of the organisation "Vexmor", application "Cim":
/// one group each below "CanInterfaces", named by CCommonInfo::settingsGroup.
///
/// The constructor reads the file. What other programs change later is seen only after this object's own next change:
/// make a new object for each operation of the user. A change is made under a lock that all these programs use, and has
/// reached the disk and was read back from there when the call returns without a failure.
class CInterfaceStore
{
public:
    /// The store of this program's organisation and application, in the program's default format: the one that
    /// interfaces load from and store in.
    CInterfaceStore() = default;
    /// The store of another program, in the platform's own format, whatever format this program prefers.
    CInterfaceStore(const QString& organization, const QString& application);

    /// What is wrong when the file cannot be read: then nothing seems to be stored.
    Failure failure();
    /// Names of the stored interfaces, in alphabetical order.
    QStringList names();
    bool contains(const QString& name);
    /// All that is stored under a name; empty when nothing is.
    Settings settings(const QString& name);
    /// Removes exactly this interface.
    Failure remove(const QString& name);
    /// Stores settings as an interface has them (`settingsOf`), by name, each in the place of what was stored there: in
    /// one piece, however many.
    Failure put(const QMap<QString, Settings>& interfaces);

    /// Gives a closed interface the name and what is stored under it.
    static Failure load(Cim::CCanInterface& canInterface, const QString& name);
    /// Lets the interface store itself under a name, in the place of what was stored there.
    Failure save(Cim::CCanInterface& canInterface, const QString& name);

private:
    /// Makes a change of these interfaces while no other program makes one, and writes all that was changed, also
    /// through other objects. When another program's QSettings has overwritten it since, it is made again, a few times.
    Failure change(const QStringList& names, const std::function<Failure()>& make);
    /// Reads the file whether or not QSettings would take it for unchanged, which it does by size and time: of two
    /// saves of one size within a tick of the file system's clock it sees one. So the file gets a time that it never
    /// had.
    void readAnew();
    Failure notWritable() const;

    QSettings m_settings; ///< what another object could not write waits here
    QDateTime m_fileTime; ///< the last one that the file was given
};

} // namespace vexmor::Apps
