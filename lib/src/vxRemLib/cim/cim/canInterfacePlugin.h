#pragma once

#include "cim/cimExport.h"

#include <QObject>
#include <QString>
#include <QStringList>

namespace vexmor::Cim
{

class CCanInterface;

/// The one object that a CAN interface plugin offers. A host loads the library with QPluginLoader, casts the instance
/// to this class with qobject_cast, and uses it from the thread that loaded it (the plugin's thread) for as long as the
/// library stays loaded; the loader deletes it.
///
/// Interfaces are the host's, but their code is the library's: all are deleted before the library is unloaded, and
/// before the application object. Unload it from the event loop, never in a slot or handler that it called.
///
/// The instance is a QObject with the signal `interfaceScanFinished(int pluginId, QList<CCanInterface*>
/// interfaceList)`; whoever receives it owns the interfaces in the list, which live in the plugin's thread. Connect to
/// it by name: `SIGNAL(interfaceScanFinished(int,QList<CCanInterface*>))`, and write the slot's parameter the same,
/// without a namespace. The slot is called in the plugin's thread, and may start the next scan. For an object in
/// another thread Qt queues the call, and drops it unless the host has called
/// `qRegisterMetaType<QList<CCanInterface*>>("QList<CCanInterface*>")` before it connects.
///
/// The plugin of the T93 is the file libInterfaceT93.so, in the folder that the CMake package names
/// `VexmorCim_PLUGIN_DIR` and pkg-config `plugindir`; hosts load it by QPluginLoader.
///
/// Texts for the user are taken from the translators installed when the library is loaded, and again whenever the host
/// installs or removes one (Qt then sends QEvent::LanguageChange to the application). This takes no call, but the
/// library must have been loaded in the application's thread. Other threads may read texts at any time. Descriptions of
/// interfaces are data: they stay as they were made.
///
/// The order of the virtual operations is part of the contract: host and plugin are built separately.
class CIM_EXPORT CCanInterfacePlugin
{
public:
    CCanInterfacePlugin();
    CCanInterfacePlugin(const CCanInterfacePlugin& other);
    CCanInterfacePlugin& operator=(const CCanInterfacePlugin& other);
    virtual ~CCanInterfacePlugin();

    /// The plugin's name, as it stands in each interface description.
    virtual QString pluginName() = 0;
    /// The plugin's number, handed over with every scan result.
    virtual int pluginId() = 0;
    /// Type of the interfaces that the plugin creates, for example "T93".
    virtual QString interfaceType() = 0;
    /// A new, closed interface with the plugin's defaults and no unique name; the caller owns it. Called in the
    /// plugin's thread, where the interface then lives: `moveToThread` takes it to another while it is closed.
    virtual CCanInterface* createInterface() = 0;
    /// Adds an IP address that scans also ask directly; true also when it was there. False when the text is no address.
    virtual bool addScanAddress(const QString& address) = 0;
    /// Removes such an address; false when it was not there, or the text is no address.
    virtual bool removeScanAddress(const QString& address) = 0;
    /// The added addresses, in the order they were added.
    virtual QStringList scanAddresses() = 0;
    /// Starts a scan, whose result comes with `interfaceScanFinished`; the event loop must run for that. The interfaces
    /// that were found are deleted when nobody is connected to the signal at that time. 0 when started, -1 when none
    /// was started (one is running already).
    ///
    /// Unique names are made of host name, protocol, socket mode and port: two gateways with equal host names get the
    /// same, and so does one gateway that answered twice. The interface identifiers, which are the MAC
    /// addresses, show whether it is one gateway or two. A host that stores both gives one of them another name first,
    /// or the second replaces the first.
    virtual int scanInterfaces() = 0;
};

} // namespace vexmor::Cim

Q_DECLARE_INTERFACE(vexmor::Cim::CCanInterfacePlugin, "quinmark.CCanInterfacePlugin/1.1")

/// Text that identifies the library, a constant; exported under its plain name, for hosts that look before they load.
extern "C" CIM_EXPORT const char* canInterfaceLibIdent();
