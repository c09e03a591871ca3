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

/// A scan of the network by a plugin, and the interfaces it found. Takes over 4 s, in the event loop. Deleted before
/// its end, it leaves what the scan finds to nobody: the plugin deletes it.
class CInterfaceScan : public QObject
{
    Q_OBJECT

public:
    explicit CInterfaceScan(const SPlugin& plugin);

    /// Starts the scan; `addresses` are asked directly, too. Fails when one is no address, and when the plugin is
    /// scanning already.
    Failure start(const QStringList& addresses);
    bool isFinished() const { return m_finished; }
    /// The interfaces found, closed, in the order in which they answered.
    std::vector<std::unique_ptr<CCanInterface>>& found() { return m_found; }

Q_SIGNALS:
    void finished();

private Q_SLOTS:
    void onScanFinished(int pluginId, const QList<CCanInterface*>& interfaceList);

private:
    Cim::CCanInterfacePlugin& m_plugin;
    std::vector<std::unique_ptr<CCanInterface>> m_found;
    bool m_finished = false;
};

} // namespace vexmor::Apps
