#include "apps/cimctl/target.h"

#include "apps/common/embeddedSim.h"
#include "apps/common/failure.h"
#include "apps/common/gatewayAddress.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

namespace vexmor::Apps::Cimctl
{
namespace
{
const QString SIM = QStringLiteral("sim");
const QString SIM_LOG = QStringLiteral("sim:");
} // namespace

CTarget::CTarget(const STargetOptions& options) : m_plugins(loadPlugins(options.place)), m_settings(options.settings)
{
    if (isStored(options.text)) {
        if (!options.settings.isEmpty()) {
            failUsage(
                QStringLiteral("'%1' is a stored interface: its settings stand in the store (option for %2 refused)")
                    .arg(options.text, options.settings.firstKey()));
        }
        m_storedName = options.text;
        m_settings = storedSettings(m_storedName);
    } else if (isSimTarget(options.text)) {
        m_sim = std::make_unique<CEmbeddedSim>(options.text.mid(SIM_LOG.size()));
        m_settings.insert(StoreKey::ADDRESS, m_sim->gateway().address().toString());
        m_settings.insert(StoreKey::PORT, QString::number(m_sim->gateway().port()));
        if (!m_settings.contains(StoreKey::BAUDRATE)) {
            m_settings.insert(StoreKey::BAUDRATE, QString::number(m_sim->bus().baudrate()));
        }
    } else if (!parseAddress(options.text, m_settings)) {
        failUsage(
            QStringLiteral("target '%1': no stored interface, no address like 192.168.1.70:30000:TCP, and not sim")
                .arg(options.text));
    }
}

CTarget::~CTarget() = default;

std::unique_ptr<Cim::CCanInterface> CTarget::makeInterface() const
{
    std::unique_ptr<Cim::CCanInterface> canInterface(plugin().object->createInterface());
    if (m_storedName.isEmpty()) {
        applySettings(*canInterface, m_settings);
    } else {
        loadStored(*canInterface, m_storedName);
    }
    return canInterface;
}

const SPlugin& CTarget::plugin() const
{
    const auto owner = m_settings.find(StoreKey::PLUGIN_NAME);
    if (owner == m_settings.end()) {
        return m_plugins.front();
    }
    const SPlugin* const found = pluginNamed(m_plugins, *owner);
    if (found == nullptr) {
        failRefused(QStringLiteral("'%1' belongs to the plugin %2, which was not found").arg(m_storedName, *owner));
    }
    return *found;
}

bool isSimTarget(const QString& text)
{
    return text == SIM || text.startsWith(SIM_LOG);
}

} // namespace vexmor::Apps::Cimctl
