#pragma once

#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostAddress>
#include <QList>
#include <QObject>

namespace vexmor::Cim
{

/// The plugin object of the T93: the one instance that the library gives a host. Lives in the thread that loaded the
/// library. It keeps no interfaces: each belongs to whoever received it.
class CInterfaceT93Plugin : public QObject, public CCanInterfacePlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "quinmark.CanInterfaces.CInterfaceT93Plugin")
    Q_INTERFACES(vexmor::Cim::CCanInterfacePlugin)

public:
    /// Fills the translated texts of all result codes and interface errors.
    CInterfaceT93Plugin();
    /// Does so again when translators were installed or removed.
    bool eventFilter(QObject* watched, QEvent* event) override;

    QString pluginName() override;
    int pluginId() override;
    QString interfaceType() override;
    CCanInterface* createInterface() override;
    bool addScanAddress(const QString& address) override;
    bool removeScanAddress(const QString& address) override;
    QStringList scanAddresses() override;

Q_SIGNALS:
    /// Whoever receives the interfaces owns them.
    void interfaceScanFinished(int pluginId, QList<CCanInterface*> interfaceList);

public Q_SLOTS:
    /// This version does not scan yet: always -1.
    int scanInterfaces() override;
    void deviceDetectionThreadFinished();

private:
    QList<QHostAddress> m_scanAddresses; ///< asked directly by every scan, in the order added, without duplicates
};

} // namespace vexmor::Cim
