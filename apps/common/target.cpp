#include "apps/common/target.h"

#include "apps/common/embeddedSim.h"
#include "apps/common/gatewayAddress.h"
#include "apps/common/interfaceStore.h"
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
const QString SIM_LOG = QStringLiteral("sim:");

const char* const TARGET_HELP =
    R"(TARGET is the name of a stored interface (as cimctl list shows), an address or host name
ADDRESS[:PORT][:TCP|:UDP], a port text like IP=192.168.1.70:30000:TCP, or sim: a simulated
gateway in this program (sim:FILE plays a log of candump on its bus, and ends with it).)";

/// A text that may begin with a host name: a word alone is rather a name that was mistyped, and nobody is asked for it.
bool mayBeHostName(const QString& text)
{
    static const QRegularExpression FORM(QStringLiteral("^(localhost|[\\w-]+([.][\\w-]+)+|[\\w-]+(?=:))(:.*)?$"));
    return FORM.match(text).hasMatch();
}

/// The same with the address of the host.
Result<QString> resolved(const QString& text)
{
    const QString host = text.section(QLatin1Char(':'), 0, 0);
    const QList<QHostAddress> addresses = QHostInfo::fromName(host).addresses();
    const auto isIpv4 = [](const QHostAddress& one) { return one.protocol() == QAbstractSocket::IPv4Protocol; };
    const auto found = std::find_if(addresses.begin(), addresses.end(), isIpv4);
    if (found == addresses.end()) {
        return SProblem{QStringLiteral("the host %1 has no IPv4 address").arg(host)};
    }
    return found->toString() + text.mid(host.size());
}
} // namespace

void STargetOptions::addTo(CLI::App& command, ENumber number)
{
    if (number == ENumber::eOne) {
        const auto take = [this](const QString& text) { texts.append(text); };
        addText(command, "TARGET", take, "The gateway: a stored name, an address, or sim", {}).required();
    } else {
        COption targets =
            addTexts(command, "TARGETS", texts, "The gateways: stored names, addresses, or sim").several();
        if (number == ENumber::eSeveral) {
            targets.required();
        }
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

CTarget::CTarget(std::vector<SPlugin> plugins, QString name) : m_plugins(std::move(plugins)), m_name(std::move(name)) {}

CTarget::CTarget(CTarget&&) noexcept = default;

CTarget::~CTarget() = default;

Result<CTarget> CTarget::find(std::vector<SPlugin> plugins, const QString& text, const Settings& settings)
{
    const auto wrong = [](const QString& problem) { return SProblem{problem, 0, true}; };
    CTarget target(std::move(plugins), text);
    CInterfaceStore store;
    if (Failure failure = store.failure()) {
        return *failure;
    }
    target.m_isStored = store.contains(text);
    if (target.m_isStored) {
        if (!settings.isEmpty()) {
            return wrong(
                QStringLiteral("'%1' is a stored interface: its settings stand in the store (option for %2 refused)")
                    .arg(text, settings.firstKey()));
        }
        target.m_settings = store.settings(text);
    } else if (isSimTarget(text)) {
        target.m_sim = std::make_unique<CEmbeddedSim>();
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
        auto address = isAddress(text) ? Result<QString>(text) : resolved(text);
        auto read = address ? readAddress(*address, settings) : address.problem();
        if (!read) {
            return read.problem();
        }
        target.m_settings = *read;
    } else {
        return wrong(
            QStringLiteral("target '%1': no stored interface, no address like 192.168.1.70:30000:TCP, and not sim")
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
