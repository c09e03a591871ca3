#pragma once

#include <QTemporaryDir>

namespace vexmor::Bench
{

/// What this process holds now.
struct SResources {
    double residentKib = 0;
    double heapKib = 0; ///< allocated and not freed
    int descriptors = 0;
};
SResources resources();

/// For its lifetime, which is that of the program: a settings store of its own, in memory.
class CPrivateSettings
{
public:
    CPrivateSettings();

private:
    QTemporaryDir m_directory;
};

} // namespace vexmor::Bench
