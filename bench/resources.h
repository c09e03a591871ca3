#pragma once

namespace vexmor::Bench
{

/// What this process holds now.
struct SResources {
    double residentKib = 0;
    double heapKib = 0; ///< allocated and not freed
    int descriptors = 0;
};
SResources resources();

} // namespace vexmor::Bench
