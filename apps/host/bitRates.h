#pragma once

#include <QStringList>

namespace vexmor::Apps
{

/// The bit rates that a T93 can set on its CAN bus, kbit/s, as the user types or chooses them.
inline QStringList bitRates()
{
    return {QStringLiteral("50"),  QStringLiteral("100"), QStringLiteral("125"),
            QStringLiteral("250"), QStringLiteral("500"), QStringLiteral("1000")};
}

} // namespace vexmor::Apps
