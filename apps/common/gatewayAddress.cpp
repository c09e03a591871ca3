#include "apps/common/gatewayAddress.h"

#include "apps/common/failure.h"
#include "sim/commandLine.h"

#include <QStringList>

namespace vexmor::Apps
{
namespace
{
const QString PORT_TEXT = QStringLiteral("IP=");

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

bool parseAddress(const QString& text, Settings& settings)
{
    const bool isPortText = text.startsWith(PORT_TEXT);
    QStringList parts = text.mid(isPortText ? PORT_TEXT.size() : 0).split(QLatin1Char(':'));
    const QString address = Sim::plainAddress(parts.takeFirst());
    if (address.isEmpty()) {
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

} // namespace vexmor::Apps
