#pragma once

#include "apps/host/interfaceScan.h"

#include <functional>
#include <memory>
#include <vector>

namespace vexmor::Apps::Cimview
{

/// A scan of the network by every plugin at once, as often as the user likes. Lives in the thread of the plugins.
class CNetworkScan : public QObject
{
    Q_OBJECT

public:
    using Interfaces = std::vector<std::unique_ptr<CCanInterface>>;

    /// `plugins` must outlive the scan. `take` receives the interfaces that each of them has found.
    CNetworkScan(const std::vector<SPlugin>& plugins, std::function<void(Interfaces)> take);

    /// Returns false when no plugin can start; true also when a scan runs already.
    bool start();
    bool isRunning() const { return !m_scans.empty(); }

Q_SIGNALS:
    /// Every plugin has delivered its interfaces; their number.
    void finished(int found);

private:
    void onFinished();

    const std::vector<SPlugin>& m_plugins;
    const std::function<void(Interfaces)> m_take;
    std::vector<std::unique_ptr<CInterfaceScan>> m_scans; ///< that run, one per plugin
};

} // namespace vexmor::Apps::Cimview
