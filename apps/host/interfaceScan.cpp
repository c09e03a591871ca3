#include "apps/host/interfaceScan.h"

#include "apps/host/gatewayAddress.h"
#include "apps/host/words.h"
#include "cim/canInterfacePlugin.h"

#include <QPluginLoader>

namespace vexmor::Apps
{

CInterfaceScan::CInterfaceScan(const SPlugin& plugin) : m_plugin(*plugin.object)
{
    connect(plugin.loader->instance(), SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), this,
            SLOT(onScanFinished(int, QList<CCanInterface*>)));
}

Failure CInterfaceScan::start(const QStringList& addresses)
{
    for (const QString& address : addresses) {
        if (!m_plugin.addScanAddress(plainAddress(address))) {
            return wrongUsage(Words::tr("'%1' is no address like 192.168.1.70").arg(address));
        }
    }
    return m_plugin.scanInterfaces() == 0 ? Failure() : SProblem{Words::tr("the plugin scans already")};
}

void CInterfaceScan::onScanFinished(int /*pluginId*/, const QList<CCanInterface*>& interfaceList)
{
    for (CCanInterface* const canInterface : interfaceList) {
        m_found.emplace_back(canInterface);
    }
    m_finished = true;
    Q_EMIT finished();
}

} // namespace vexmor::Apps
