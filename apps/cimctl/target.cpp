#include "apps/cimctl/target.h"

#include "apps/common/embeddedSim.h"
#include "apps/common/failure.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostAddress>
#include <QStringList>

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
const QString SIM = QStringLiteral("sim");
const QString SIM_LOG = QStringLiteral("sim:");
const QString PORT_TEXT = QStringLiteral("IP=");

bool isAddress(const QString& text)
{
    // Four numbers: QHostAddress alone would also take short forms like "10.1".
    return text.count(QLatin1Char('.')) == 3 && QHostAddress(text).protocol() == QAbstractSocket::IPv4Protocol;
}

bool isProtocol(const QString& text)
{
    const QString upper = text.toUpper();
    return upper == QLatin1String("TCP") || upper == QLatin1String("UDP");
}

void setOnce(Settings& settings, const QString& key, const QString& value)
{
    const QString present = settings.value(key, value);
    if (present != value) {
        failUsage(QStringLiteral("%1: %2 contradicts %3").arg(key, present, value));
    }
    settings.insert(key, value);
}

void setPort(Settings& settings, const QString& text)
{
    bool ok = false;
    const int port = text.toInt(&ok);
    if (!ok || port < 1 || port > 65535) {
        failUsage(QStringLiteral("port %1: must be 1 to 65535").arg(text));
    }
    setOnce(settings, StoreKey::PORT, QString::number(port));
}
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
    const auto isOwner = [&owner](const SPlugin& plugin) { return plugin.object->pluginName() == *owner; };
    const auto found = std::find_if(m_plugins.begin(), m_plugins.end(), isOwner);
    if (found == m_plugins.end()) {
        failRefused(QStringLiteral("'%1' belongs to the plugin %2, which was not found").arg(m_storedName, *owner));
    }
    return *found;
}

bool isSimTarget(const QString& text)
{
    return text == SIM || text.startsWith(SIM_LOG);
}

bool parseAddress(const QString& text, Settings& settings)
{
    const bool isPortText = text.startsWith(PORT_TEXT);
    QStringList parts = text.mid(isPortText ? PORT_TEXT.size() : 0).split(QLatin1Char(':'));
    const QString address = parts.takeFirst();
    if (!isAddress(address)) {
        return false;
    }
    if (isPortText && parts.size() != 2) {
        failUsage(QStringLiteral("port text %1: must be IP=ADDRESS:PORT:PROTOCOL").arg(text));
    }
    settings.insert(StoreKey::ADDRESS, address);
    if (!parts.isEmpty() && isProtocol(parts.last())) {
        setOnce(settings, StoreKey::PROTOCOL, parts.takeLast().toUpper());
    } else if (parts.size() == 2) {
        failUsage(QStringLiteral("protocol %1: must be TCP or UDP").arg(parts.last()));
    }
    if (parts.size() > 1) {
        failUsage(QStringLiteral("address %1: must be ADDRESS[:PORT][:TCP|:UDP]").arg(text));
    }
    if (!parts.isEmpty()) {
        setPort(settings, parts.first());
    }
    return true;
}

} // namespace vexmor::Apps::Cimctl
