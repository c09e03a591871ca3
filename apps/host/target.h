#pragma once

#include "apps/host/interfaceSettings.h"
#include "apps/host/pluginFolder.h"

#include <QString>

#include <memory>
#include <vector>

namespace vexmor::Cim
{
class CCanInterface;
}

namespace vexmor::Apps
{

class CEmbeddedSim;

/// A gateway to work with, and the plugin that reaches it. TARGET is, the first that fits: the name of a stored
/// interface; "sim" or "sim:FILE", a simulated gateway in this program; an address, ADDRESS[:PORT][:TCP|:UDP], with a
/// host name in the place of the address, or a port text like IP=10.0.0.5:30000:TCP.
class CTarget
{
public:
    /// Fails when the text is none of these, and when a simulated gateway cannot start. Unless it `tries`, no such
    /// gateway is started and no host name is looked up: these have the address 0.0.0.0 then.
    static Result<CTarget> find(std::vector<SPlugin> plugins, const QString& text, const Settings& settings,
                                bool tries = true);

    /// A new, closed interface for the gateway. Fails when the plugin refuses the settings.
    Result<std::unique_ptr<Cim::CCanInterface>> makeInterface() const;
    /// As it was typed.
    QString name() const { return m_name; }
    /// The simulated gateway, null for a real one.
    CEmbeddedSim* sim() const { return m_sim.get(); }

private:
    CTarget(std::vector<SPlugin> plugins, QString name);

    std::vector<SPlugin> m_plugins;
    QString m_name;
    bool m_isStored = false;
    Settings m_settings;
    std::shared_ptr<CEmbeddedSim> m_sim; ///< null for a real gateway
};

/// True for a target text that stands for a simulated gateway.
bool isSimTarget(const QString& text);

} // namespace vexmor::Apps
