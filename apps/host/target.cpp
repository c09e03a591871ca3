#include "apps/host/target.h"

#include "apps/host/embeddedSim.h"
#include "apps/host/gatewayAddress.h"
#include "apps/host/interfaceStore.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostInfo>
#include <QRegularExpression>

#include <algorithm>

namespace vexmor::Apps
{
namespace
{
const QString SIM = QStringLiteral("sim");
const QString NO_ADDRESS = QStringLiteral("0.0.0.0");
const QString SIM_LOG = QStringLiteral("sim:");

/// Returns whether a text may begin with a host name. A single word other than localhost is more likely a mistyped name
/// of a stored interface, and is not resolved.
bool mayBeHostName(const QString& text)
{
    static const QRegularExpression FORM(QStringLiteral("^(localhost|[\\w-]+([.][\\w-]+)+|[\\w-]+(?=:))(:.*)?$"));
    return FORM.match(text).hasMatch();
}

/// Returns the text with the host name replaced by the address of the host, or by 0.0.0.0 if `isForUse` is false.
Result<QString> resolved(const QString& text, bool isForUse)
{
    const QString host = text.section(QLatin1Char(':'), 0, 0);
    if (!isForUse) {
        return NO_ADDRESS + text.mid(host.size());
    }
    const QList<QHostAddress> addresses = QHostInfo::fromName(host).addresses();
    const auto isIpv4 = [](const QHostAddress& one) { return one.protocol() == QAbstractSocket::IPv4Protocol; };
    const auto found = std::find_if(addresses.begin(), addresses.end(), isIpv4);
    if (found == addresses.end()) {
        return SProblem{QStringLiteral("the host %1 has no IPv4 address").arg(host)};
    }
    return found->toString() + text.mid(host.size());
}
} // namespace

CTarget::CTarget(std::vector<SPlugin> plugins, QString name) : m_plugins(std::move(plugins)), m_name(std::move(name)) {}

Result<CTarget> CTarget::find(std::vector<SPlugin> plugins, const QString& text, const Settings& settings,
                              bool isForUse)
{
    CTarget target(std::move(plugins), text);
    CInterfaceStore store;
    if (Failure failure = store.failure()) {
        return *failure;
    }
    target.m_isStored = store.contains(text);
    if (target.m_isStored) {
        if (!settings.isEmpty()) {
            return wrongUsage(QStringLiteral("'%1' is a stored interface: %2 is set in the store, not by an option")
                                  .arg(text, settings.firstKey()));
        }
        target.m_settings = store.settings(text);
    } else if (isSimTarget(text) && !isForUse) {
        target.m_settings = *readAddress(NO_ADDRESS, settings);
    } else if (isSimTarget(text)) {
        target.m_sim = std::make_shared<CEmbeddedSim>();
        if (Failure failure = target.m_sim->start(text.mid(SIM_LOG.size()))) {
            return *failure;
        }
        target.m_settings = settings;
        target.m_settings.insert(StoreKey::ADDRESS, target.m_sim->gateway().address().toString());
        target.m_settings.insert(StoreKey::PORT, QString::number(target.m_sim->gateway().port()));
        if (!settings.contains(StoreKey::BAUDRATE)) {
            target.m_settings.insert(StoreKey::BAUDRATE, QString::number(target.m_sim->bus().baudrate()));
        }
    } else if (isAddress(text) || mayBeHostName(text)) {
        auto address = isAddress(text) ? Result<QString>(text) : resolved(text, isForUse);
        auto read = address ? readAddress(*address, settings) : address.problem();
        if (!read) {
            return read.problem();
        }
        target.m_settings = *read;
    } else {
        return wrongUsage(
            QStringLiteral(
                "target '%1' is neither a stored interface, nor an address like 192.168.1.70:30000:TCP, nor sim")
                .arg(text));
    }
    return Result<CTarget>(std::move(target));
}

Result<std::unique_ptr<Cim::CCanInterface>> CTarget::makeInterface() const
{
    const QString owner = m_settings.value(StoreKey::PLUGIN_NAME);
    const SPlugin* const plugin = pluginNamed(m_plugins, owner);
    if (plugin == nullptr) {
        return SProblem{QStringLiteral("'%1' belongs to the plugin %2, which was not found").arg(m_name, owner)};
    }
    std::unique_ptr<Cim::CCanInterface> canInterface(plugin->object->createInterface());
    if (Failure failure =
            m_isStored ? CInterfaceStore::load(*canInterface, m_name) : applySettings(*canInterface, m_settings)) {
        return *failure;
    }
    return Result<std::unique_ptr<Cim::CCanInterface>>(std::move(canInterface));
}

bool isSimTarget(const QString& text)
{
    return text == SIM || text.startsWith(SIM_LOG);
}

} // namespace vexmor::Apps
