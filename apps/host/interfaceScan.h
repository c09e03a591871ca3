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

using Cim::CCanInterface; // a slot is connected by the names of its parameters, as the plugin writes them

/// Scans the network by every plugin at once, as often as the user likes, and keeps what the last scan found. A scan
/// takes over 4 s, in the event loop. When this object is deleted before that, the plugin deletes what it finds.
class CInterfaceScan : public QObject
{
    Q_OBJECT

public:
    /// `plugins` must outlive the object.
    explicit CInterfaceScan(const std::vector<SPlugin>& plugins);

    /// Starts a scan, when none is running; requests also go to each of `addresses`. Fails when one is no address, and
    /// when no plugin can scan.
    Failure start(const QStringList& addresses = {});
    bool isRunning() const { return m_running > 0; }
    /// The interfaces found, closed, in the order in which they answered.
    std::vector<std::unique_ptr<CCanInterface>>& found() { return m_found; }

Q_SIGNALS:
    /// Every plugin has delivered its interfaces.
    void finished();

private Q_SLOTS:
    void onScanFinished(int pluginId, const QList<CCanInterface*>& interfaceList);

private:
    const std::vector<SPlugin>& m_plugins;
    std::vector<std::unique_ptr<CCanInterface>> m_found;
    int m_running = 0; ///< number of plugins that scan
};

} // namespace vexmor::Apps
