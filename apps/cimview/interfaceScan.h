#pragma once

#include "cim/canInterface.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <vector>

namespace vexmor::Apps::Cimview
{

using Cim::CCanInterface; // the signal's signature is looked up as it is written in the plugin

/// A scan for interfaces by every plugin at once. Lives in the thread of the plugins.
class CInterfaceScan : public QObject
{
    Q_OBJECT

public:
    using Interfaces = std::vector<std::unique_ptr<CCanInterface>>;

    /// Plugin objects as their loaders give them; they must outlive the scan. `take` gets what each has found.
    CInterfaceScan(const std::vector<QObject*>& plugins, std::function<void(Interfaces)> take);

    /// False when no plugin starts to scan; true as well when a scan runs already.
    bool start();
    bool isRunning() const { return m_running > 0; }

Q_SIGNALS:
    /// Every plugin has handed over what it found: so many interfaces.
    void finished(int found);

private Q_SLOTS:
    void onScanFinished(int pluginId, QList<CCanInterface*> interfaceList);

private:
    const std::vector<QObject*> m_plugins;
    const std::function<void(Interfaces)> m_take;
    int m_running = 0; ///< plugins that have not finished yet
    int m_found = 0;
};

} // namespace vexmor::Apps::Cimview
