#pragma once

#include <QCoreApplication>

namespace vexmor::Apps
{

/// The context in which the catalogs of programs have the texts of common code.
struct Words {
    Q_DECLARE_TR_FUNCTIONS(Common)
};

} // namespace vexmor::Apps
