#pragma once

#include <QCoreApplication>

namespace vexmor::CanLog
{

/// Texts for users, in the language of the catalogs that a program has installed.
struct Words {
    Q_DECLARE_TR_FUNCTIONS(CanLog)
};

} // namespace vexmor::CanLog
