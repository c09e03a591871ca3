#pragma once

#include <string>

namespace vexmor::Bench
{

/// What this process holds now.
struct SResources {
    double residentKib = 0;
    double heapKib = 0; ///< allocated and not freed
    int descriptors = 0;

    SResources operator-(const SResources& before) const
    {
        return {residentKib - before.residentKib, heapKib - before.heapKib, descriptors - before.descriptors};
    }
};
SResources resources();
/// "memory 1 KiB, heap 2 KiB, descriptors 3"
std::string textOf(const SResources& resources);

} // namespace vexmor::Bench
