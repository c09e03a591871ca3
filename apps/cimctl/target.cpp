#include "apps/cimctl/target.h"

#include "apps/cimctl/command.h"
#include "apps/common/embeddedSim.h"
#include "apps/common/gatewayAddress.h"
#include "apps/common/interfaceStore.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostInfo>
#include <QRegularExpression>

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
const QString SIM = QStringLiteral("sim");
const QString SIM_LOG = QStringLiteral("sim:");

const char* const TARGET_HELP =
    R"(TARGET is the name of a stored interface (see list), an address or host name
ADDRESS[:PORT][:TCP|:UDP], a port text like IP=192.168.1.70:30000:TCP, or sim: a simulated
gateway in this program (sim:FILE plays a log of candump on its bus, and ends with it).)";

/// A text that may begin with a host name: a word alone is rather a name that was mistyped, and nobody is asked for it.
bool mayBeHostName(const QString& text)
{
    static const QRegularExpression FORM(QStringLiteral("^(localhost|[\\w-]+([.][\\w-]+)+|[\\w-]+(?=:))(:.*)?$"));
    return FORM.match(text).hasMatch();
}

/// The same with the address of the host.
QString resolved(const QString& text)
{
    const QString host = text.section(QLatin1Char(':'), 0, 0);
    const QList<QHostAddress> addresses = QHostInfo::fromName(host).addresses();
    const auto isIpv4 = [](const QHostAddress& one) { return one.protocol() == QAbstractSocket::IPv4Protocol; };
    const auto found = std::find_if(addresses.begin(), addresses.end(), isIpv4);
    if (found == addresses.end()) {
        throw SProblem{QStringLiteral("the host %1 has no IPv4 address").arg(host)};
    }
    return found->toString() + text.mid(host.size());
}
} // namespace

void STargetOptions::addTo(CLI::App& command, bool several)
{
    if (several) {
        addTexts(command, "TARGETS", texts, "The gateways: stored names, addresses, or sim").required().several();
    } else {
        const auto take = [this](const QString& text) { texts.append(text); };
        addText(command, "TARGET", take, "The gateway: a stored name, an address, or sim", {}).required();
    }
    addInterfaceSettings(command, settings);
    setFooter(command, TARGET_HELP);
}

COption addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                   const std::string& type, const std::string& help)
{
    const auto take = [&settings, key](const QString& text) { settings.insert(key, text); };
    return addText(command, names, take, help, type).group("Interface");
}

void addInterfaceSettings(CLI::App& command, Settings& settings)
{
    addSetting(command, "--protocol", settings, StoreKey::PROTOCOL, "TCP|UDP", "Transport to the gateway (TCP)")
        .oneOf({"TCP", "UDP"});
    addSetting(command, "--baudrate", settings, StoreKey::BAUDRATE, "KBIT",
               "Bit rate of the CAN bus: 50, 100, 125, 250, 500 or 1000 kbit/s (as the gateway has it)")
        .bitRate();
    addSetting(command, "--local-address", settings, StoreKey::LOCAL_ADDRESS, "ADDRESS",
               "UDP: address of this computer's network interface to the gateway (any)")
        .address();
    addSetting(command, "--poll-time", settings, StoreKey::POLL_TIME, "MS", "Time between bus load requests (800)")
        .whole(100, 3000);
    addSetting(command, "--measure-interval", settings, StoreKey::MEASURE_TIME, "MS",
               "Time over which the gateway measures bus load (1000)")
        .whole(100, 3000);
    const auto bindAny = [&settings] { settings.insert(StoreKey::UDP_BIND_ANY, QStringLiteral("1")); };
    addFlag(command, "--udp-any", bindAny, "UDP: receive on all addresses of this computer").group("Interface");
}

CTarget::CTarget(std::vector<SPlugin> plugins, const QString& text, const Settings& settings)
    : m_plugins(std::move(plugins)), m_name(text), m_settings(settings)
{
    CInterfaceStore store;
    require(store.failure());
    m_isStored = store.contains(text);
    if (m_isStored) {
        if (!settings.isEmpty()) {
            failUsage(
                QStringLiteral("'%1' is a stored interface: its settings stand in the store (option for %2 refused)")
                    .arg(text, settings.firstKey()));
        }
        m_settings = store.settings(text);
    } else if (isSimTarget(text)) {
        m_sim = std::make_unique<CEmbeddedSim>();
        require(m_sim->start(text.mid(SIM_LOG.size())));
        m_settings.insert(StoreKey::ADDRESS, m_sim->gateway().address().toString());
        m_settings.insert(StoreKey::PORT, QString::number(m_sim->gateway().port()));
        if (!m_settings.contains(StoreKey::BAUDRATE)) {
            m_settings.insert(StoreKey::BAUDRATE, QString::number(m_sim->bus().baudrate()));
        }
    } else if (isAddress(text) || mayBeHostName(text)) {
        m_settings = valueOf(readAddress(isAddress(text) ? text : resolved(text), m_settings));
    } else {
        failUsage(
            QStringLiteral("target '%1': no stored interface, no address like 192.168.1.70:30000:TCP, and not sim")
                .arg(text));
    }
}

CTarget::~CTarget() = default;

std::unique_ptr<Cim::CCanInterface> CTarget::makeInterface() const
{
    const QString owner = m_settings.value(StoreKey::PLUGIN_NAME);
    const SPlugin* const plugin = pluginNamed(m_plugins, owner);
    if (plugin == nullptr) {
        throw SProblem{QStringLiteral("'%1' belongs to the plugin %2, which was not found").arg(m_name, owner)};
    }
    std::unique_ptr<Cim::CCanInterface> canInterface(plugin->object->createInterface());
    require(m_isStored ? CInterfaceStore::load(*canInterface, m_name) : applySettings(*canInterface, m_settings));
    return canInterface;
}

bool isSimTarget(const QString& text)
{
    return text == SIM || text.startsWith(SIM_LOG);
}

} // namespace vexmor::Apps::Cimctl
