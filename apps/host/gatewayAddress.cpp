#include "apps/host/gatewayAddress.h"

#include "apps/host/words.h"

#include <QStringList>

namespace vexmor::Apps
{
namespace
{
const QString PORT_TEXT = QStringLiteral("IP=");

/// Returns the parts of an address text between its colons. The first part is the address without leading zeros, or
/// empty if it is invalid.
QStringList partsOf(const QString& text)
{
    const int start = text.startsWith(PORT_TEXT) ? PORT_TEXT.size() : 0;
    QStringList parts = text.mid(start).split(QLatin1Char(':'));
    parts.first() = plainAddress(parts.first());
    return parts;
}

Failure setOnce(Settings& settings, const QString& key, const QString& value)
{
    const QString present = settings.value(key, value);
    settings.insert(key, value);
    return present == value ? Failure() : wrongUsage(Words::tr("%1: %2 contradicts %3").arg(key, present, value));
}

Failure setPort(Settings& settings, const QString& text)
{
    bool ok = false;
    const int port = text.toInt(&ok);
    if (!ok || port < 1 || port > 65535) {
        return wrongUsage(Words::tr("port %1: must be 1 to 65535").arg(text));
    }
    return setOnce(settings, StoreKey::PORT, QString::number(port));
}

bool isProtocol(const QString& text)
{
    const QString upper = text.toUpper();
    return upper == QLatin1String("TCP") || upper == QLatin1String("UDP");
}

Failure setProtocol(Settings& settings, const QString& text)
{
    return isProtocol(text) ? setOnce(settings, StoreKey::PROTOCOL, text.toUpper())
                            : wrongUsage(Words::tr("protocol %1: must be TCP or UDP").arg(text));
}
} // namespace

QString plainAddress(const QString& typed)
{
    QStringList numbers = typed.split(QLatin1Char('.'));
    for (QString& number : numbers) {
        bool ok = false;
        const unsigned int value = number.toUInt(&ok);
        // The first and the last character are checked, because toUInt also accepts blanks and signs.
        if (!ok || value > 0xFF || !number.front().isDigit() || !number.back().isDigit()) {
            return {};
        }
        number = QString::number(value);
    }
    return numbers.size() == 4 ? numbers.join(QLatin1Char('.')) : QString();
}

bool isAddress(const QString& text)
{
    return !partsOf(text).first().isEmpty();
}

Result<Settings> readAddress(const QString& text, Settings present)
{
    const QStringList parts = partsOf(text);
    Failure failure;
    if (parts.first().isEmpty()) {
        failure = wrongUsage(Words::tr("'%1' is not an address like 192.168.1.70:30000:TCP").arg(text));
    } else if (text.startsWith(PORT_TEXT) && parts.size() != 3) {
        failure = wrongUsage(Words::tr("port text %1: must be IP=ADDRESS:PORT:PROTOCOL").arg(text));
    } else if (parts.size() > 3) {
        failure = wrongUsage(Words::tr("address %1: must be ADDRESS[:PORT][:TCP|:UDP]").arg(text));
    }
    // Without a port, the protocol is the second part.
    const bool hasPort = parts.size() == 3 || (parts.size() == 2 && !isProtocol(parts.at(1)));
    if (!failure && hasPort) {
        failure = setPort(present, parts.at(1));
    }
    if (!failure && parts.size() == (hasPort ? 3 : 2)) {
        failure = setProtocol(present, parts.last());
    }
    present.insert(StoreKey::ADDRESS, parts.first());
    if (!present.contains(StoreKey::BAUDRATE)) {
        present.insert(StoreKey::BAUDRATE, GATEWAYS_BIT_RATE);
    }
    return failure ? Result<Settings>(*failure) : Result<Settings>(present);
}

} // namespace vexmor::Apps
