#pragma once

#include "apps/common/interfaceSettings.h"
#include "apps/common/options.h"
#include "apps/common/pluginFolder.h"

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

/// What the user typed to say which gateway.
struct STargetOptions {
    QStringList texts; ///< TARGET, one at least
    Settings settings; ///< of the options beside it; not for a stored name

    enum class ENumber { eOne, eSeveral, eAny };
    /// Adds TARGET, or TARGETS, and the options beside it to a command.
    void addTo(CLI::App& command, ENumber number = ENumber::eOne);
};

/// Adds an option for a parameter of an interface.
COption addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                   const std::string& type, const std::string& help);
/// Adds the options for all that an interface can be told besides its address.
void addInterfaceSettings(CLI::App& command, Settings& settings);

/// A gateway to work with, and the plugin that reaches it. TARGET is, the first that fits: the name of a stored
/// interface; "sim" or "sim:FILE", a simulated gateway in this program; an address, ADDRESS[:PORT][:TCP|:UDP], with a
/// host name in the place of the address, or a port text like IP=10.0.0.5:30000:TCP.
class CTarget
{
public:
    /// Fails when the text is none of these, and when a simulated gateway cannot start.
    static Result<CTarget> find(std::vector<SPlugin> plugins, const QString& text, const Settings& settings);
    CTarget(CTarget&&) noexcept;
    ~CTarget();

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
    std::unique_ptr<CEmbeddedSim> m_sim;
};

/// True for a target text that stands for a simulated gateway.
bool isSimTarget(const QString& text);

} // namespace vexmor::Apps
