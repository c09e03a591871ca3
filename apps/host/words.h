#pragma once

#include <QCoreApplication>

namespace vexmor::Apps
{

/// The translation context of the texts in this folder.
struct Words {
    Q_DECLARE_TR_FUNCTIONS(Common)
};

} // namespace vexmor::Apps
