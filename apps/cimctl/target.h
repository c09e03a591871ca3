#pragma once

#include "apps/common/interfaceStore.h"
#include "apps/common/pluginFolder.h"

#include <QString>

#include <memory>

namespace vexmor::Cim
{
class CCanInterface;
}

namespace vexmor::Apps
{
class CEmbeddedSim;
}

namespace vexmor::Apps::Cimctl
{

/// What the user typed to say which gateway.
struct STargetOptions {
    SPluginPlace place;
    QString text;      ///< TARGET
    Settings settings; ///< of the options beside it; not for a stored name
};

/// A gateway to work with, and the plugin that reaches it. TARGET is, the first that fits: the name of a stored
/// interface; "sim" or "sim:FILE", a simulated gateway in this program; an address, ADDRESS[:PORT][:TCP|:UDP] or a port
/// text like IP=10.0.0.5:30000:TCP.
class CTarget
{
public:
    /// Fails when the text is none of these, when there is no plugin, and when a simulated gateway cannot start.
    explicit CTarget(const STargetOptions& options);
    ~CTarget();

    /// A new, closed interface for the gateway. Fails with the plugin's code and text when it refuses the settings.
    std::unique_ptr<Cim::CCanInterface> makeInterface() const;
    /// The simulated gateway, null for a real one.
    CEmbeddedSim* sim() const { return m_sim.get(); }

private:
    const SPlugin& plugin() const;

    const std::vector<SPlugin> m_plugins;
    QString m_storedName; ///< empty for any other target
    Settings m_settings;
    std::unique_ptr<CEmbeddedSim> m_sim;
};

/// True for a target text that stands for a simulated gateway.
bool isSimTarget(const QString& text);

} // namespace vexmor::Apps::Cimctl
