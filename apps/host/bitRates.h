#pragma once

#include <QStringList>

namespace vexmor::Apps
{

/// Returns the bit rates of the CAN bus that a T93 supports, in kbit/s, as texts that users type or choose.
inline QStringList bitRates()
{
    return {QStringLiteral("50"),  QStringLiteral("100"), QStringLiteral("125"),
            QStringLiteral("250"), QStringLiteral("500"), QStringLiteral("1000")};
}

} // namespace vexmor::Apps
