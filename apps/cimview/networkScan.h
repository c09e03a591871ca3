#pragma once

#include "apps/host/interfaceScan.h"

#include <memory>
#include <vector>

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// A scan of the network by every plugin at once, as often as the user likes. Lives in the thread of the plugins.
class CNetworkScan : public QObject
{
    Q_OBJECT

public:
    /// Adds the interfaces that are found to a list. Both must outlive the scan.
    CNetworkScan(const std::vector<SPlugin>& plugins, CInterfaceList& interfaces);

    /// Returns false when no plugin can start; true also when a scan runs already.
    bool start();
    bool isRunning() const { return !m_scans.empty(); }

Q_SIGNALS:
    /// Every plugin has delivered its interfaces; their number.
    void finished(int found);

private:
    void onFinished();

    const std::vector<SPlugin>& m_plugins;
    CInterfaceList& m_interfaces;
    std::vector<std::unique_ptr<CInterfaceScan>> m_scans; ///< that run, one per plugin
};

} // namespace vexmor::Apps::Cimview
