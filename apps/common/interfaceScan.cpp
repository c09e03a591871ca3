#include "apps/common/interfaceScan.h"

#include "apps/common/failure.h"
#include "cim/canInterfacePlugin.h"
#include "sim/commandLine.h"

#include <QPluginLoader>

namespace vexmor::Apps
{

CInterfaceScan::CInterfaceScan(const SPlugin& plugin) : m_plugin(*plugin.object)
{
    connect(plugin.loader->instance(), SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), this,
            SLOT(onScanFinished(int, QList<CCanInterface*>)));
}

void CInterfaceScan::start(const QStringList& addresses)
{
    for (const QString& address : addresses) {
        if (!m_plugin.addScanAddress(Sim::plainAddress(address))) {
            failUsage(QStringLiteral("'%1' is no address like 192.168.1.70").arg(address));
        }
    }
    if (m_plugin.scanInterfaces() != 0) {
        failRefused(QStringLiteral("the plugin scans already"));
    }
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
