#pragma once

#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostAddress>
#include <QList>
#include <QMutex>
#include <QObject>

#include <memory>

namespace vexmor::Cim
{

class CT93DeviceDetectionThread;

/// The plugin object of the T93, the instance that QPluginLoader returns. CCanInterfacePlugin describes its operations.
///  A scan runs in a thread of its own; its result is delivered by the event loop of the plugin's thread. If the plugin
/// object is deleted, the library unloaded or the program ended during the scan, the scan is cancelled without a
/// result: its pauses end at once, and the destructor waits up to 100 ms for the thread. A thread that takes longer,
/// for example because a log handler blocks it, ends by itself later; the library then stays in memory even when it is
/// unloaded. At the end of the program, which destroys objects that the thread uses, the wait is longer: up to 5 s on a
/// busy computer, or 1 s while a log handler blocks the thread.
class CInterfaceT93Plugin : public QObject, public CCanInterfacePlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "quinmark.CanInterfaces.CInterfaceT93Plugin")
    Q_INTERFACES(vexmor::Cim::CCanInterfacePlugin)

public:
    /// Translates the texts of all result codes and interface errors.
    CInterfaceT93Plugin();
    ~CInterfaceT93Plugin() override;
    /// Translates the texts again when translators were installed or removed.
    bool eventFilter(QObject* watched, QEvent* event) override;

    QString pluginName() override;
    int pluginId() override;
    QString interfaceType() override;
    CCanInterface* createInterface() override;
    bool addScanAddress(const QString& address) override;
    bool removeScanAddress(const QString& address) override;
    QStringList scanAddresses() override;

Q_SIGNALS:
    /// Reports the end of a scan, with a closed interface for each endpoint (protocol, socket mode and port) in each
    /// reply: a gateway that answered several times is listed several times, under one unique name. The receiver owns
    /// the interfaces. The slot may start the next scan or delete the plugin object; it must not unload the library,
    /// whose code called it.
    void interfaceScanFinished(int pluginId, QList<CCanInterface*> interfaceList);

public Q_SLOTS:
    int scanInterfaces() override;
    /// Delivers the result; connected to the scan thread's `finished`.
    void deviceDetectionThreadFinished();

private:
    /// Ends a running scan without a result.
    void cancelScan(bool atEndOfProgram);
    bool waitAtEndOfProgram();
    void setIdle();
    static void cancelScanWhenProgramEnds();
    /// Cancels the running scan, whichever plugin object started it.
    static void cancelScanAtEndOfProgram();

    std::unique_ptr<CT93DeviceDetectionThread> m_detectionThread; ///< The scan; null when none is running.
    QMutex m_scanMutex;                  ///< Held while a scan is running. No thread waits for it.
    QList<QHostAddress> m_scanAddresses; ///< Addresses of direct requests, in the order added, without duplicates.
};

} // namespace vexmor::Cim
