#pragma once

#include "apps/host/interfaceSettings.h"
#include "canlog/problem.h"

#include <QString>

namespace vexmor::Apps
{

/// An IPv4 address as it is typed, with four decimal numbers; leading zeros mean nothing (QHostAddress would read octal
/// numbers, and short forms like "10.1"). Empty when it is none.
QString plainAddress(const QString& typed);

/// True for a text that begins with an address, of either form below.
bool isAddress(const QString& text);

/// Reads ADDRESS[:PORT][:TCP|:UDP], or a port text like IP=192.168.1.70:30000:TCP, into settings. What `present` says
/// already (from options) must not differ. Without a bit rate among them the gateway's is left as it is: who only
/// listens must not disturb a bus.
Result<Settings> readAddress(const QString& text, Settings present = {});

} // namespace vexmor::Apps
