#pragma once

#include "apps/host/interfaceSettings.h"
#include "canlog/problem.h"

#include <QString>

namespace vexmor::Apps
{

/// Returns an IPv4 address of four decimal numbers without leading zeros; empty for any other text. (QHostAddress would
/// read octal numbers, and short forms like "10.1".)
QString plainAddress(const QString& typed);

/// Returns whether a text begins with an address, in one of the two forms that `readAddress` reads.
bool isAddress(const QString& text);

/// Reads ADDRESS[:PORT][:TCP|:UDP], or a port text like IP=192.168.1.70:30000:TCP, and returns the settings `present`
/// (from options) with address, port and protocol added. Fails when the text is malformed or contradicts `present`. If
/// `present` has no bit rate, the result has GATEWAYS_BIT_RATE, because listening must not disturb a bus.
Result<Settings> readAddress(const QString& text, Settings present = {});

} // namespace vexmor::Apps
