#include "apps/host/interfaceScan.h"

#include "apps/host/gatewayAddress.h"
#include "apps/host/words.h"
#include "cim/canInterfacePlugin.h"

#include <QPluginLoader>

namespace vexmor::Apps
{

CInterfaceScan::CInterfaceScan(const std::vector<SPlugin>& plugins) : m_plugins(plugins)
{
    for (const SPlugin& plugin : plugins) {
        connect(plugin.loader->instance(), SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), this,
                SLOT(onScanFinished(int, QList<CCanInterface*>)));
    }
}

Failure CInterfaceScan::start(const QStringList& addresses)
{
    m_found.clear();
    for (const SPlugin& plugin : m_plugins) {
        for (const QString& address : addresses) {
            if (!plugin.object->addScanAddress(plainAddress(address))) {
                return wrongUsage(Words::tr("'%1' is not an address like 192.168.1.70").arg(address));
            }
        }
        m_running += plugin.object->scanInterfaces() == 0 ? 1 : 0;
    }
    return isRunning() ? Failure() : SProblem{Words::tr("the scan cannot be started; another one may be running")};
}

void CInterfaceScan::onScanFinished(int /*pluginId*/, const QList<CCanInterface*>& interfaceList)
{
    for (CCanInterface* const canInterface : interfaceList) {
        m_found.emplace_back(canInterface);
    }
    if (--m_running == 0) {
        Q_EMIT finished();
    }
}

} // namespace vexmor::Apps
