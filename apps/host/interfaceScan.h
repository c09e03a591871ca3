#pragma once

#include "apps/host/pluginFolder.h"
#include "cim/canInterface.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <memory>
#include <vector>

namespace vexmor::Apps
{

using Cim::CCanInterface; // the slot's parameter must be written as in the plugin's signal

/// Scans the network with all plugins at the same time and keeps the interfaces that the last scan found. A scan takes
/// over 4 s and needs the event loop. If this object is deleted during a scan, the plugins delete the interfaces that
/// they find.
class CInterfaceScan : public QObject
{
    Q_OBJECT

public:
    /// `plugins` must outlive the object.
    explicit CInterfaceScan(const std::vector<SPlugin>& plugins);

    /// Starts a scan unless one is running. Requests are also sent directly to each of `addresses`. Fails when one of
    /// them is invalid, or no plugin can scan.
    Failure start(const QStringList& addresses = {});
    bool isRunning() const { return m_running > 0; }
    /// Returns the interfaces found, closed, in the order in which they answered. The caller may take them.
    std::vector<std::unique_ptr<CCanInterface>>& found() { return m_found; }

Q_SIGNALS:
    /// All plugins have delivered their interfaces.
    void finished();

private Q_SLOTS:
    void onScanFinished(int pluginId, const QList<CCanInterface*>& interfaceList);

private:
    const std::vector<SPlugin>& m_plugins;
    std::vector<std::unique_ptr<CCanInterface>> m_found;
    int m_running = 0; ///< Number of plugins that are scanning.
};

} // namespace vexmor::Apps
