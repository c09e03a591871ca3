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

/// A gateway that the user has named, with the plugin for it. A TARGET text is read as the first of these that fits:
/// - the name of a stored interface;
/// - "sim" or "sim:FILE" for a simulated gateway in this program;
/// - ADDRESS[:PORT][:TCP|:UDP], where ADDRESS may be a host name, or a port text like IP=10.0.0.5:30000:TCP.
class CTarget
{
public:
    /// Finds the gateway for a text. Fails when the text has none of the forms above, when a host name is unknown, when
    /// `settings` contradict the text, or when a simulated gateway cannot start. If `isForUse` is false, because only
    /// the text is to be checked, no simulated gateway is started and no host name is looked up: the address is then
    /// 0.0.0.0 in both cases.
    static Result<CTarget> find(std::vector<SPlugin> plugins, const QString& text, const Settings& settings,
                                bool isForUse = true);

    /// Returns a new, closed interface for the gateway. Fails when the plugin is missing or refuses the settings.
    Result<std::unique_ptr<Cim::CCanInterface>> makeInterface() const;
    /// Returns the text that the user typed.
    QString name() const { return m_name; }
    /// Returns the simulated gateway; null for a real one.
    CEmbeddedSim* sim() const { return m_sim.get(); }

private:
    CTarget(std::vector<SPlugin> plugins, QString name);

    std::vector<SPlugin> m_plugins;
    QString m_name;
    bool m_isStored = false;
    Settings m_settings;
    std::shared_ptr<CEmbeddedSim> m_sim; ///< The simulated gateway; null for a real one.
};

/// Returns whether a target text stands for a simulated gateway.
bool isSimTarget(const QString& text);

} // namespace vexmor::Apps
