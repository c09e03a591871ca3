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

/// The plugin object of the T93: the one instance that the library gives a host. Lives in the thread that loaded the
/// library. It keeps no interfaces: each belongs to whoever received it.
///
/// A scan runs in a thread of its own and needs the event loop of the plugin's thread to end. When the plugin object is
/// deleted, the library unloaded or the program ended meanwhile, the scan is cut short without a result: its pauses and
/// its wait end at once, and the scan thread is waited for, for at most 100 ms. One that takes longer (a host's log
/// handler may hold it up) ends by itself later, and this library stays in memory even when it is unloaded, so that it
/// can. At the end of the program, which takes away what the thread uses, it is waited for longer: for at most 5 s when
/// the computer is busy, and for 1 s while a log handler has it.
class CInterfaceT93Plugin : public QObject, public CCanInterfacePlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "quinmark.CanInterfaces.CInterfaceT93Plugin")
    Q_INTERFACES(vexmor::Cim::CCanInterfacePlugin)

public:
    /// Fills the translated texts of all result codes and interface errors.
    CInterfaceT93Plugin();
    ~CInterfaceT93Plugin() override;
    /// Fills them again when translators were installed or removed.
    bool eventFilter(QObject* watched, QEvent* event) override;

    QString pluginName() override;
    int pluginId() override;
    QString interfaceType() override;
    CCanInterface* createInterface() override;
    bool addScanAddress(const QString& address) override;
    bool removeScanAddress(const QString& address) override;
    QStringList scanAddresses() override;

Q_SIGNALS:
    /// The end of a scan, and a closed interface for each endpoint in each reply: a gateway that was reached in several
    /// ways is there several times, under one unique name. Whoever receives the interfaces owns them. The slot may
    /// start the next scan and delete the plugin object; it must not unload the library, to which it returns.
    void interfaceScanFinished(int pluginId, QList<CCanInterface*> interfaceList);

public Q_SLOTS:
    /// Starts a scan: 0, and -1 when one is running already or no thread can be had. It asks once from every address of
    /// this computer, by a broadcast and each scan address directly, and takes replies for 4 s after the last request.
    int scanInterfaces() override;
    /// Hands the result over; called by the scan thread's signal.
    void deviceDetectionThreadFinished();

private:
    /// Back to idle, without a result.
    void cancelScan(bool atEndOfProgram);
    bool waitAtEndOfProgram();
    void setIdle();
    static void cancelScanWhenProgramEnds();
    /// Cancels the scan of whichever plugin object scans.
    static void cancelScanAtEndOfProgram();

    std::unique_ptr<CT93DeviceDetectionThread> m_detectionThread; ///< null when no scan runs
    QMutex m_scanMutex;                  ///< held while a scan runs; only tells so, nobody waits for it
    QList<QHostAddress> m_scanAddresses; ///< asked directly by every scan, in the order added, without duplicates
};

} // namespace vexmor::Cim
