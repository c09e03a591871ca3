#include "apps/cimview/networkScan.h"

#include "apps/cimview/interfaceList.h"

#include <algorithm>

namespace vexmor::Apps::Cimview
{

CNetworkScan::CNetworkScan(const std::vector<SPlugin>& plugins, CInterfaceList& interfaces)
    : m_plugins(plugins), m_interfaces(interfaces)
{
}

bool CNetworkScan::start()
{
    if (isRunning()) {
        return true;
    }
    for (const SPlugin& plugin : m_plugins) {
        auto scan = std::make_unique<CInterfaceScan>(plugin);
        if (scan->start({})) { // the other plugins may still scan
            continue;
        }
        connect(scan.get(), &CInterfaceScan::finished, this, &CNetworkScan::onFinished);
        m_scans.push_back(std::move(scan));
    }
    return isRunning();
}

void CNetworkScan::onFinished()
{
    if (!std::all_of(m_scans.begin(), m_scans.end(), [](const auto& scan) { return scan->isFinished(); })) {
        return;
    }
    int found = 0;
    for (auto& scan : m_scans) {
        found += static_cast<int>(scan->found().size());
        m_interfaces.addFound(std::move(scan->found()));
        scan.release()->deleteLater(); // one of them emitted the signal
    }
    m_scans.clear();
    Q_EMIT finished(found);
}

} // namespace vexmor::Apps::Cimview
