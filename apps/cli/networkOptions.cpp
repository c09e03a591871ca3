#include "apps/cli/networkOptions.h"

#include "apps/host/gatewayAddress.h"

#include <algorithm>

namespace vexmor::Apps
{

Failure SAllowedNetworks::add(const QStringList& texts)
{
    for (const QString& text : texts) {
        networks.append(QHostAddress::parseSubnet(text));
        if (plainAddress(text.section(QLatin1Char('/'), 0, 0)).isEmpty() || networks.last().second < 0) {
            return wrongUsage(QStringLiteral("'%1' is not a network like 192.168.1.0/24").arg(text));
        }
    }
    return {};
}

bool SAllowedNetworks::allow(const QHostAddress& address) const
{
    const auto holds = [&address](const auto& network) { return address.isInSubnet(network); };
    return networks.isEmpty() || std::any_of(networks.begin(), networks.end(), holds);
}

Failure SListenAddress::set(const QString& text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool isPort = false;
    port = text.mid(colon + 1).toUShort(&isPort);
    address = QHostAddress(colon < 0 ? QStringLiteral("127.0.0.1") : plainAddress(text.left(colon)));
    return isPort && isGiven()
               ? Failure()
               : wrongUsage(QStringLiteral("'%1' is not an [ADDRESS:]PORT like 0.0.0.0:29536").arg(text));
}

COption addListening(CLI::App& app, const std::string& names, SListenAddress& address, const std::string& help)
{
    const auto set = [&address](const QString& text) { return address.set(text); };
    return addValue(app, names, set, help, "[ADDRESS:]PORT");
}

} // namespace vexmor::Apps
