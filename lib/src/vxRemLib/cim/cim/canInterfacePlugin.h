#pragma once

#include "cim/cimExport.h"

#include <QObject>
#include <QString>
#include <QStringList>

namespace vexmor::Cim
{

class CCanInterface;

/// The object through which a CAN interface plugin offers its interfaces.
///
/// Loading: load the library with QPluginLoader and cast its instance to this class with qobject_cast. The plugin of
/// the T93 is the file libInterfaceT93.so in the folder that the CMake package names `VexmorCim_PLUGIN_DIR` and
/// pkg-config `plugindir`. Use the object only in the thread that loaded it (the plugin's thread). It exists as long as
/// the library stays loaded, and the loader deletes it. Delete all interfaces before the library is unloaded and before
/// the application object is deleted; unload the library from the event loop, never in a slot or handler that the
/// library called.
///
/// Scan results: the instance is a QObject with the signal
/// `interfaceScanFinished(int pluginId, QList<CCanInterface*> interfaceList)`. The interfaces in the list live in the
/// plugin's thread and are owned by the receiver. Connect to the signal by name,
/// `SIGNAL(interfaceScanFinished(int,QList<CCanInterface*>))`, and write the parameters of the slot the same way,
/// without a namespace. The slot may start the next scan. When the receiver lives in another thread, Qt queues the
/// call; it drops the call unless `qRegisterMetaType<QList<CCanInterface*>>("QList<CCanInterface*>")` was called before
/// the connection was made.
///
/// Texts for the user are translated by the translators that are installed when the library is loaded, and again
/// whenever the application installs or removes one (QEvent::LanguageChange). For this, load the library in the thread
/// of the application object. Descriptions of existing interfaces keep their language.
///
/// The order of the virtual functions is part of the contract: host application and plugin are built separately.
class CIM_EXPORT CCanInterfacePlugin
{
public:
    CCanInterfacePlugin();
    CCanInterfacePlugin(const CCanInterfacePlugin& other);
    CCanInterfacePlugin& operator=(const CCanInterfacePlugin& other);
    virtual ~CCanInterfacePlugin();

    /// Returns the name of the plugin, which the description of each of its interfaces contains.
    virtual QString pluginName() = 0;
    /// Returns the number of the plugin (1 for the T93), the first argument of `interfaceScanFinished`.
    virtual int pluginId() = 0;
    /// Returns the type of the interfaces that the plugin creates, for example "T93".
    virtual QString interfaceType() = 0;
    /// Returns a new, closed interface with default values and no unique name; the caller owns it. Call this in the
    /// plugin's thread, where the interface then lives.
    virtual CCanInterface* createInterface() = 0;
    /// Adds an IP address to which scans also send a request directly. Returns true, also when the address was added
    /// before; false when the text is no IP address, like a host name.
    virtual bool addScanAddress(const QString& address) = 0;
    /// Removes an address that was added by `addScanAddress`. Returns false when there is no such address.
    virtual bool removeScanAddress(const QString& address) = 0;
    /// Returns the added addresses, in the order in which they were added.
    virtual QStringList scanAddresses() = 0;
    /// Starts a scan of the network. Returns 0 when it was started, or -1 when it was not, because a scan of this
    /// plugin is running or the system provides no thread. The T93's scan broadcasts a request from each address of
    /// this computer and collects replies for 4 s after the last request. `interfaceScanFinished` then delivers the
    /// result from the event loop; if nothing is connected to this signal at that time, the interfaces found are
    /// deleted.
    ///
    /// A reply names the endpoints of a gateway, each with protocol, socket mode and port; the result contains one
    /// interface per endpoint in each reply. LocalIPAddress is the address that received the reply. All parameters that
    /// a reply does not contain have their default values: set the bit rate before opening.
    ///
    /// Unique names consist of host name, protocol, socket mode and port. Gateways with equal host names therefore have
    /// equal unique names, and so have the interfaces from several replies of one gateway. The interface identifier,
    /// which is the MAC address, distinguishes gateways. Rename one of two interfaces with equal names before storing
    /// both: otherwise the second replaces the first in the store.
    virtual int scanInterfaces() = 0;
};

} // namespace vexmor::Cim

Q_DECLARE_INTERFACE(vexmor::Cim::CCanInterfacePlugin, "quinmark.CCanInterfacePlugin/1.1")

/// Returns a constant text that identifies the library. The function is exported under its plain name, so that it can
/// be called before the plugin object is created.
extern "C" CIM_EXPORT const char* canInterfaceLibIdent();
