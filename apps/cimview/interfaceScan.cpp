#include "apps/cimview/interfaceScan.h"

#include "cim/canInterfacePlugin.h"

namespace vexmor::Apps::Cimview
{

CInterfaceScan::CInterfaceScan(const std::vector<QObject*>& plugins, std::function<void(Interfaces)> take)
    : m_plugins(plugins), m_take(std::move(take))
{
    for (QObject* const plugin : m_plugins) {
        connect(plugin, SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), this,
                SLOT(onScanFinished(int, QList<CCanInterface*>)));
    }
}

bool CInterfaceScan::start()
{
    if (isRunning()) {
        return true;
    }
    m_found = 0;
    for (QObject* const plugin : m_plugins) {
        m_running += qobject_cast<Cim::CCanInterfacePlugin*>(plugin)->scanInterfaces() == 0 ? 1 : 0;
    }
    return isRunning();
}

void CInterfaceScan::onScanFinished(int /*pluginId*/, QList<CCanInterface*> interfaceList)
{
    Interfaces found;
    for (CCanInterface* const canInterface : std::as_const(interfaceList)) {
        found.emplace_back(canInterface);
    }
    m_found += interfaceList.size();
    m_take(std::move(found));
    if (m_running > 0 && --m_running == 0) {
        Q_EMIT finished(m_found);
    }
}

} // namespace vexmor::Apps::Cimview
